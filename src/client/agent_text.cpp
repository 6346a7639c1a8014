#include "client/agent_text.h"

#include "base/record.h"

namespace velotide::client {

std::string describeState(const TerminalAgentSnapshot& agent) {
  std::string text(rawWord(agent.activity));
  if (agent.blockReason) text += " (" + std::string(rawWord(*agent.blockReason)) + ")";
  const bool isOver =
      agent.activity == TerminalAgentActivity::idle || agent.activity == TerminalAgentActivity::exited;
  if (isOver && agent.lastResult) text += " (" + std::string(rawWord(*agent.lastResult)) + ")";
  return text;
}

std::string describeAgent(const TerminalAgentSnapshot& agent) {
  return std::string(rawWord(agent.kind)) + " " + describeState(agent);
}

}  // namespace velotide::client
