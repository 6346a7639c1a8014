#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>

#include "agents/agent_report.h"

namespace velotide::client {

// What an event that an agent announces through its hooks means for its state.
struct AgentEvent {
  enum class Meaning {
    sessionBegins,
    turnBegins,
    goesOn,
    blocks,
    turnEnds,
    sessionEnds,
  };

  Meaning meaning = Meaning::goesOn;
  std::optional<TerminalAgentBlockReason> blockReason;
  std::optional<TerminalAgentResult> result;
  // The agent's own names for its session and, where it has one, for the turn.
  std::string agentSession;
  std::optional<std::string> turn;

  bool operator==(const AgentEvent&) const = default;

  // What is to be reported; nothing for the beginning of a session, of which only the binding tells.
  std::optional<TerminalAgentActivity> activity() const;
  // The agent's session and turn in the form that reports carry; nothing when its session has no UUID.
  std::optional<TerminalAgentReportedContext> context() const;
};

// The event that a payload of the agent's documented shape announces: nothing when it says nothing about the
// state. The payload is parsed in place (see JsonDocument::parse). Throws Trouble when it is of another
// shape. `claude`: the object that a hook gets. `codex`: that, or the object that a notification program
// gets.
std::optional<AgentEvent> readClaudeEvent(std::span<char> payload);
std::optional<AgentEvent> readCodexEvent(std::span<char> payload);

}  // namespace velotide::client
