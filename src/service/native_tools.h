#pragma once

#include <map>
#include <memory>
#include <string>

#include "base/time.h"
#include "bridge/bridge_sessions.h"
#include "bridge/native_bridge.h"
#include "events/attention_store.h"
#include "events/event_log.h"
#include "terminal/runtime_session.h"
#include "waits/wait_coordinator.h"

namespace velotide {

using SessionTable = std::map<Uuid, std::unique_ptr<RuntimeSession>>;

// What tools inside the sessions are served with: the mailbox and the bounded waits, over the service's
// sessions, event log and attention items.
class NativeTools : private BridgeSessions {
 public:
  // Opens the mailbox under `root`. Everything given must outlive the object. Throws what RuntimeNativeBridge
  // throws.
  NativeTools(const std::string& root, TerminalSessionEventStore& events, TerminalAttentionStore& attention,
              SessionTable& sessions);

  void process(Date now) { bridge_.process(*this, now); }

  const TerminalWaitCoordinator& waits() const { return waits_; }
  // Nothing waits, and every result has been handed out.
  bool isIdle() const { return waits_.pendingCount() == 0 && waits_.completionCount() == 0; }
  void shutdown() { waits_.shutdown(); }

 private:
  bool contains(const Uuid& tabID) const override;
  bool isRunning(const Uuid& tabID) const override;
  const std::optional<TerminalAgentSnapshot>& agent(const Uuid& tabID) const override;
  bool authorizes(const Uuid& tabID, const std::optional<std::string>& token) const override;
  void updateAgent(const Uuid& tabID, const std::function<void(TerminalAgentMonitor&)>& change) override;

  std::optional<TerminalWaitTargetSnapshot> target(const Uuid& tabID) const;

  SessionTable& sessions_;
  RuntimeNativeBridge bridge_;
  TerminalWaitCoordinator waits_;
};

}  // namespace velotide
