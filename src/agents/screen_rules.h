#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "agents/agent_snapshot.h"

namespace velotide {

// What a screen says of the agent that drew it.
struct TerminalAgentScreenDetection {
  TerminalAgentActivity activity = TerminalAgentActivity::unknown;
  std::optional<TerminalAgentBlockReason> blockReason;
  TerminalAgentReason reason = TerminalAgentReason::unrecognizedScreen;

  bool operator==(const TerminalAgentScreenDetection&) const = default;
};

// Reads agents from the outside: their state from the text of the screen, their kind from what was launched.
// A fixed table of literal lines, so what it finds is trusted least. A character is what a person sees as
// one (a grapheme cluster); text is compared by canonical equivalence and by case.
struct TerminalAgentScreenRules {
  TerminalAgentScreenRules() = delete;

  // Every snapshot records it; any change of the tables increments it.
  static constexpr std::int64_t version = 2;
  // Only the last characters, and of them the last non-empty lines, are examined.
  static constexpr std::size_t maximumCharacters = 8192;
  static constexpr std::size_t maximumLines = 12;
  // Characters may be of any length. Beyond this many bytes from the end nothing is examined, so that a
  // screen of endless characters costs no more than another.
  static constexpr std::size_t maximumBytes = 32 * maximumCharacters;

  // `screen` holds rows joined by line feeds.
  static TerminalAgentScreenDetection detect(TerminalAgentKind kind, std::string_view screen);

  // The agent program at a path, by its last component alone.
  static std::optional<TerminalAgentKind> kind(std::string_view executable);

  // The agent that a shell command line runs. Nothing for a line that does more than run one program, and for
  // a run that only prints information.
  static std::optional<TerminalAgentKind> launchedKind(std::string_view command);
};

}  // namespace velotide
