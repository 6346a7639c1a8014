#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "client/command_output.h"
#include "client/zsh_line_end.h"

namespace velotide::client {

// Follows one command that is about to start: when it does, what it prints, how it ends. A machine over the
// session's output, which comes in any chunks, in order.
class CommandWatch {
 public:
  enum class State {
    // The start mark has not been seen.
    awaited,
    running,
    // Its end mark was seen: `exitCode`.
    finished,
    // Another command began before.
    superseded,
  };

  // The command is the first whose start mark begins at or behind `startOffset`.
  explicit CommandWatch(std::uint64_t startOffset) : startOffset_(startOffset) {}

  // What of these bytes, and of those held back, is the command's output. `offset` is where they begin in the
  // session's stream. Nothing more comes after a gap.
  std::string take(ByteView bytes, std::uint64_t offset);
  // What is held back, when no more will come.
  std::string rest() { return lineEnd_.end(); }

  State state() const { return state_; }
  // Of the command that finished.
  std::int32_t exitCode() const { return exitCode_; }
  // Where its start mark begins; absent before it is seen.
  const std::optional<std::uint64_t>& markerOffset() const { return markerOffset_; }

 private:
  // Of what came before the start: more is not needed to know the shell.
  static constexpr std::size_t maximumEarlier = 2 * CommandOutput::lead;

  void apply(const TerminalLocatedShellEvent& located);
  std::string cut(ByteView bytes, std::uint64_t offset);

  std::uint64_t startOffset_;
  TerminalShellIntegrationParser parser_;
  State state_ = State::awaited;
  std::int32_t exitCode_ = 0;
  std::optional<std::uint64_t> markerOffset_;
  bool isZsh_ = false;
  // The stream's end before the start was seen.
  std::string earlier_;
  std::optional<CommandOutput> output_;
  ZshLineEnd lineEnd_;
};

}  // namespace velotide::client
