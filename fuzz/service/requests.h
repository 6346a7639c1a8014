#pragma once

#include <optional>

#include "bridge/native_messages.h"
#include "protocol/runtime_request.h"
#include "script.h"
#include "service/service_state.h"

namespace velotide {

// Requests as the script decides, most of them such that the service has reason to carry them out: about
// sessions, commands, agents and notices that there are. Compiled with a view of private members.
class RequestMaker {
 public:
  RequestMaker(Script& script, const RuntimeServiceState& state) : script_(script), state_(state) {}

  TerminalRuntimeRequest runtimeRequest();
  RuntimeNativeRequest nativeRequest();

 private:
  const RuntimeSession* session();
  TerminalRuntimeLaunch launch();
  TerminalReminderPolicy reminderPolicy();
  TerminalRuntimeOutputCursor outputCursor(const RuntimeSession& session);
  TerminalEventCursor eventCursor();
  TerminalAgentReport agentReport(const RuntimeSession& session);
  std::optional<Uuid> commandOf(const RuntimeSession& session);
  TerminalWaitSpec waitSpec(const RuntimeSession* session);
  void aim(TerminalRuntimeRequest& request, const RuntimeSession& session);
  void fillInput(TerminalRuntimeRequest& request, const RuntimeSession* session);
  void fillAttention(TerminalRuntimeRequest& request);

  Script& script_;
  const RuntimeServiceState& state_;
};

}  // namespace velotide
