#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "client/notices.h"
#include "client/service.h"

namespace velotide::client {

// Control of one session under an owner's name, for as long as the object lives: nobody else's typing is
// accepted meanwhile. A person who takes it back has it.
class SessionControl {
 public:
  // `service` must outlive it. Takes control; `session` is how the session was last seen, which must be how
  // it stands. Throws Trouble when somebody else has it, or anything was typed since.
  SessionControl(Service& service, const TerminalRuntimeSessionInfo& session, std::string owner);
  ~SessionControl();
  SessionControl(const SessionControl&) = delete;
  SessionControl& operator=(const SessionControl&) = delete;

  // The session when control was taken.
  const TerminalRuntimeSessionInfo& session() const { return session_; }

  enum class Expects { nothing, lineEditor };
  // Types; with Expects::lineEditor only while the session's own program reads keys without echo. The error
  // word when it was refused, and so not typed.
  std::optional<std::string> type(std::string_view text, Expects expects);

  // To be called now and then: keeps control from running out.
  void renew();

 private:
  static constexpr Seconds renewEvery = 40;

  TerminalRuntimeRequest request(TerminalRuntimeAction action) const;
  TerminalRuntimeResponse ask(TerminalRuntimeRequest request);

  Service& service_;
  std::string owner_;
  TerminalRuntimeSessionInfo session_;
  Uuid epoch_;
  std::uint64_t next_ = 1;
  Uptime renewedAt_;
};

}  // namespace velotide::client
