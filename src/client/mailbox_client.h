#pragma once

#include <optional>
#include <string>

#include "base/time.h"
#include "bridge/native_messages.h"
#include "client/service_root.h"

namespace velotide::client {

// An answer as it lay in the mailbox, and what it says.
struct MailboxAnswer {
  std::string text;
  RuntimeNativeResponse record;
};

// The service's mailbox as its clients use it: requests are put in as whole files, answers are taken out and
// removed. Nothing in it is believed that is not a private file of this user. Needs no connection and no key.
class MailboxClient {
 public:
  // Larger answers are refused.
  static constexpr std::size_t maximumAnswerBytes = 16 * 1024 * 1024;
  // How long the service is given for what it answers at once.
  static constexpr Seconds answerDeadline = 15;

  // Throws Trouble when no service runs at `root`, or its mailbox is not this user's alone.
  explicit MailboxClient(const ServiceRoot& root);

  // Puts a request in under a fresh `id`, and answers with that. Throws Trouble.
  std::string send(RuntimeNativeRequest request);

  // The answer to the request `id`, once it is there. Absent when `deadline` passed or `wakeDescriptor`
  // became readable first. Throws Trouble when the service is gone or the answer is not to be trusted.
  std::optional<MailboxAnswer> await(const std::string& id, Uptime deadline, int wakeDescriptor = -1);
  // Until the service has taken the request out. False when `deadline` passed or `wakeDescriptor` became
  // readable first.
  bool awaitTaken(const std::string& id, Uptime deadline, int wakeDescriptor = -1);
  // Takes back what the service has not taken, so that it is not carried out after the end of patience. False
  // when it has.
  bool withdraw(const std::string& id);

  // Throws the Trouble that no answer came in time.
  [[noreturn]] static void failUnanswered();

  // Sends, and returns the answer. One that does not come within `limit` is Trouble, and the request is
  // withdrawn.
  MailboxAnswer call(RuntimeNativeRequest request, Seconds limit = answerDeadline);
  // Ends a wait that is not needed any more, and clears its result away.
  void cancelWait(const std::string& id, const std::string& owner);

 private:
  struct Pause;

  std::string requestPath(const std::string& id) const;
  std::optional<MailboxAnswer> take(const std::string& id);
  RuntimeReadOnlyMetadata readMetadata() const;
  void checkService();

  const ServiceRoot& root_;
  std::string path_;
  RuntimeReadOnlyMetadata service_;
};

}  // namespace velotide::client
