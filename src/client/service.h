#pragma once

#include <optional>
#include <string>
#include <vector>

#include "client/connection.h"
#include "client/notices.h"
#include "client/service_root.h"

namespace velotide::client {

// The service as commands see it: ask, and be answered. Requests go one at a time over a connection that is
// made when needed; one that the connection lost on the way is sent again under its own `id`, so that it
// happens once. Every wait is bounded and says what it waits for.
class Service {
 public:
  static constexpr Seconds usualAnswerDeadline = 15;

  // `notices` must outlive it. No answer takes longer than `answerDeadline`.
  Service(ServiceRoot root, const Notices& notices, Seconds answerDeadline = usualAnswerDeadline);

  const ServiceRoot& root() const { return root_; }
  const Notices& notices() const { return notices_; }

  // Starts a service when none answers.
  void ensureRuns();

  // The answer, whatever it says. Throws Trouble when none can be had.
  TerminalRuntimeResponse ask(TerminalRuntimeRequest request);
  // The answer to a request that must succeed; a refusal is thrown as Trouble.
  TerminalRuntimeResponse call(const TerminalRuntimeRequest& request);

  // All sessions; the one of that ID, if there is one; a request about a session as it was last seen.
  std::vector<TerminalRuntimeSessionInfo> sessions();
  std::optional<TerminalRuntimeSessionInfo> session(const Uuid& id);
  static TerminalRuntimeRequest about(const TerminalRuntimeSessionInfo& session,
                                      TerminalRuntimeAction action);

  // A connection of one's own, and the key for requests on it (read again when `renew`).
  Connection connect() const { return root_.connect(); }
  void authorize(TerminalRuntimeRequest& request, bool renew = false);

  // Waits until the service has closed the connection, at most `limit`. False when it did not.
  bool waitForEnd(Seconds limit);

 private:
  std::optional<TerminalRuntimeResponse> exchange(const TerminalRuntimeRequest& request);

  ServiceRoot root_;
  const Notices& notices_;
  const Seconds answerDeadline_;
  std::optional<Connection> connection_;
  std::string capability_;
};

}  // namespace velotide::client
