#pragma once

#include <string>

#include "base/time.h"
#include "bridge/bridge_sessions.h"
#include "bridge/mailbox.h"
#include "bridge/request_performer.h"

namespace velotide {

// Lets tools in the sessions reach the service with nothing but files: a tool puts a request into one
// directory and finds the response of the same name in another. The loop calls it once a turn.
class RuntimeNativeBridge {
 public:
  // Opens the mailbox under `root` and says there which run of the service serves it. The log must outlive
  // the bridge. Throws Failure<RuntimeFailure> and SystemFailure.
  RuntimeNativeBridge(const std::string& root, TerminalSessionEventStore& events);

  // Until they are given, requests that need them are refused. Both must outlive the bridge.
  void setWaits(TerminalWaitCoordinator& waits) { targets_.waits = &waits; }
  void setAttentionStore(const TerminalAttentionStore& store) { targets_.attentionStore = &store; }

  // One pass: takes up requests, publishes the waits that have ended, removes old responses. Never fails.
  void process(BridgeSessions& sessions, Date now);

 private:
  void answer(const RuntimeNativeRequest& request, BridgeSessions& sessions, Date now);
  void publishWaits(Date now);

  Mailbox mailbox_;
  BridgeTargets targets_;
};

}  // namespace velotide
