#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/private_files.h"
#include "faults/fault_layer.h"
#include "support/stepped_service.h"

namespace velotide {

using Action = TerminalRuntimeAction;

inline std::size_t openDescriptors() {
  ::closelog();
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

// Waits for what a service left behind and answers how many that were.
inline int reapAll() {
  int count = 0;
  while (::waitpid(-1, nullptr, 0) > 0) ++count;
  return count;
}

// A service whose calls go through the fault layer; a turn lasts some hundredths of a second of its clock.
class FaultyService final : public SteppedService {
 public:
  ~FaultyService() override { faults::schedule({}); }

  std::size_t turns() const { return turns_; }
  std::string mailbox() const { return root() + "/native-tools"; }
  // Of a program that needs no file but itself.
  TerminalRuntimeRequest creationOfCat() const {
    TerminalRuntimeRequest request = creation("");
    request.launch->executable = "/bin/cat";
    request.launch->arguments.clear();
    return request;
  }
  // With the fields of every action on a session.
  TerminalRuntimeRequest everything(Action action, const TerminalRuntimeSessionInfo& session,
                                    std::string_view text) const {
    TerminalRuntimeRequest request = typed(session, text);
    request.action = action;
    request.launch = creationOfCat().launch;
    request.columns = 100;
    request.rows = 30;
    return request;
  }

 private:
  bool pass(int milliseconds) override {
    ++turns_;
    clock.advance(0.02);
    const faults::Serving serving;
    return SteppedService::pass(std::min(milliseconds, 1));
  }

  std::size_t turns_ = 0;
};

// A client that does what a patient one does: connects again when it was dropped and repeats its request,
// under the same ID, until that is answered.
class PatientClient {
 public:
  explicit PatientClient(FaultyService& service) : service_(service) { connect(); }

  void connect() { connection_.emplace(service_); }

  SteppedClient& connection() { return *connection_; }

  TerminalRuntimeResponse ask(const TerminalRuntimeRequest& request) {
    for (int attempt = 0; attempt < 8; ++attempt) {
      connection_->send(request);
      std::optional<TerminalRuntimeResponse> answer;
      service_.turnUntil(
          [&] { return (answer = connection_->take(request.id)).has_value() || connection_->isClosed(); });
      if (answer) return *answer;
      connect();
    }
    throw std::runtime_error("never answered");
  }
  // The session as the service sees it now.
  std::optional<TerminalRuntimeSessionInfo> look(const Uuid& id) {
    const auto sessions = ask(service_.make(Action::list)).sessions.value();
    const auto found = std::ranges::find(sessions, id, &TerminalRuntimeSessionInfo::id);
    return found == sessions.end() ? std::nullopt : std::optional(*found);
  }

 private:
  FaultyService& service_;
  std::optional<SteppedClient> connection_;
};

// A request in the mailbox, whole.
inline std::string dropRequest(const std::string& mailbox, const std::string& fields) {
  const std::string id = Uuid::random().text();
  replacePrivateFile(mailbox + "/requests/" + id + ".json", mailbox + "/requests/" + id + ".new",
                     bytesOf("{\"id\":\"" + id + "\"," + fields + "}"));
  return id;
}

}  // namespace velotide
