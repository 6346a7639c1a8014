#pragma once

#include <string>

#include "agents/agent_snapshot.h"

namespace velotide::client {

// For people: the state alone, with why it is blocked or what came of the last piece of work; and the agent
// with its state.
std::string describeState(const TerminalAgentSnapshot& agent);
std::string describeAgent(const TerminalAgentSnapshot& agent);

}  // namespace velotide::client
