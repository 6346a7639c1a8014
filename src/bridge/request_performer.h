#pragma once

#include <optional>

#include "base/time.h"
#include "bridge/bridge_sessions.h"
#include "bridge/native_messages.h"
#include "events/attention_store.h"
#include "events/event_log.h"
#include "waits/wait_coordinator.h"

namespace velotide {

// What the requests of the mailbox act upon. Only the log is there from the start; the others are null until
// the service gives them, and all outlive the mailbox.
struct BridgeTargets {
  TerminalSessionEventStore& events;
  TerminalWaitCoordinator* waits = nullptr;
  const TerminalAttentionStore* attentionStore = nullptr;
};

// The answer to one request; nothing when a wait has begun, whose result will be the answer. Never throws:
// what goes wrong becomes the answer's error word.
std::optional<RuntimeNativeResponse> performRequest(const RuntimeNativeRequest& request,
                                                    const BridgeTargets& targets, BridgeSessions& sessions,
                                                    Date now);

// The answer that carries the result of a wait.
RuntimeNativeResponse waitResponse(TerminalWaitResult result, const TerminalSessionEventStore& events);

}  // namespace velotide
