#include "client/session_control.h"

#include <utility>

#include "client/trouble.h"

namespace velotide::client {

SessionControl::SessionControl(Service& service, const TerminalRuntimeSessionInfo& session, std::string owner)
    : service_(service),
      owner_(std::move(owner)),
      session_(session),
      epoch_(session.controlEpoch),
      renewedAt_(now()) {
  const TerminalRuntimeResponse response = ask(request(TerminalRuntimeAction::acquireControl));
  if (!response.ok || !response.session) throw Trouble(explain(response.error.value_or("")));
  session_ = *response.session;
}

SessionControl::~SessionControl() {
  try {
    ask(request(TerminalRuntimeAction::releaseControl));
  } catch (const std::exception&) {
    // It runs out by itself after two minutes.
  }
}

TerminalRuntimeRequest SessionControl::request(TerminalRuntimeAction action) const {
  TerminalRuntimeRequest request = Service::about(session_, action);
  request.controlEpoch = epoch_;
  request.owner = owner_;
  return request;
}

TerminalRuntimeResponse SessionControl::ask(TerminalRuntimeRequest request) {
  TerminalRuntimeResponse response = service_.ask(std::move(request));
  if (response.ok && response.session) {
    epoch_ = response.session->controlEpoch;
    next_ = response.session->nextInputSequence;
  }
  return response;
}

std::optional<std::string> SessionControl::type(std::string_view text, Expects expects) {
  TerminalRuntimeRequest input = request(TerminalRuntimeAction::input);
  input.source = TerminalRuntimeInputSource::ai;
  input.inputSequence = next_;
  input.data = CarriedBytes(bytesOf(text), {});
  if (expects == Expects::lineEditor) {
    input.expectedEchoEnabled = false;
    input.expectedForegroundPID = session_.pid;
  }
  const TerminalRuntimeResponse response = ask(std::move(input));
  if (response.ok) return std::nullopt;
  return response.error.value_or("");
}

void SessionControl::renew() {
  if (now() - renewedAt_ < renewEvery) return;
  renewedAt_ = now();
  ask(request(TerminalRuntimeAction::renewControl));
}

}  // namespace velotide::client
