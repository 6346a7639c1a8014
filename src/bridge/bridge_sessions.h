#pragma once

#include <functional>
#include <optional>
#include <string>

#include "agents/agent_monitor.h"
#include "agents/agent_snapshot.h"
#include "base/uuid.h"

namespace velotide {

// The hosted sessions as far as the mailbox needs them; whoever hosts them implements it. All but `contains`
// are asked only for sessions that exist.
class BridgeSessions {
 public:
  virtual ~BridgeSessions() = default;

  virtual bool contains(const Uuid& tabID) const = 0;
  virtual bool isRunning(const Uuid& tabID) const = 0;
  virtual const std::optional<TerminalAgentSnapshot>& agent(const Uuid& tabID) const = 0;
  // Whether the token is the one in the session's agent context.
  virtual bool authorizes(const Uuid& tabID, const std::optional<std::string>& token) const = 0;
  // Applies a change to the session's agent monitor and publishes what follows from it. Throws what `change`
  // throws.
  virtual void updateAgent(const Uuid& tabID, const std::function<void(TerminalAgentMonitor&)>& change) = 0;
};

}  // namespace velotide
