#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "base/byte_queue.h"
#include "base/bytes.h"
#include "base/time.h"
#include "base/uuid.h"
#include "commands/bell_parser.h"
#include "commands/command_info.h"
#include "commands/shell_integration_parser.h"

namespace velotide {

// The commands that ran in one session, as its shell's marks tell. At most one runs, and it is the last; all
// others are final.
// Bounded: maximumCommands records with their evidence, the oldest go first; the last maximumActiveOutput
// visible bytes of the running command; what the mark parser retains.
class TerminalRuntimeCommandLedger {
 public:
  static constexpr std::size_t maximumCommands = 200;
  // How many of the latest a session description carries.
  static constexpr std::size_t maximumProjectedCommands = 8;
  static constexpr std::size_t maximumActiveOutput = 16'384;

  // What later decides whether a finished command deserves a reminder.
  struct Evidence {
    std::uint64_t outputStart = 0;  // offset behind the start mark
    std::optional<std::uint64_t> outputEnd;
    bool isLowInformation = false;
    bool hasErrorSignal = false;
    bool operator==(const Evidence&) const = default;
  };

  // Reads a chunk of output whose first byte lies at `offset` of `generation`. Returns every record it
  // created or finished, each as it stood at that moment; allocates nothing for a chunk without marks.
  std::vector<TerminalRuntimeCommandInfo> accept(ByteView chunk, std::uint64_t offset, const Uuid& generation,
                                                 Date now);
  // Ends the running command; nothing when none runs.
  std::optional<TerminalRuntimeCommandInfo> finish(TerminalCommandLifecycleState state,
                                                   std::optional<std::int32_t> exitCode,
                                                   std::optional<std::uint64_t> outputEnd, Date now);

  // Oldest first.
  const std::deque<TerminalRuntimeCommandInfo>& commands() const { return commands_; }
  // Of a listed command, valid until the next change; null for any other.
  const Evidence* evidence(const Uuid& commandID) const;
  // A listed command, looked for from the newest on; null for any other. Valid until the next change.
  const TerminalRuntimeCommandInfo* find(const Uuid& commandID) const;

 private:
  using Records = std::vector<TerminalRuntimeCommandInfo>;

  bool isRunning() const { return !commands_.empty() && !commands_.back().endedAt; }
  void apply(const TerminalLocatedShellEvent& mark, const Uuid& generation, Date now, Records& changed);
  const TerminalRuntimeCommandInfo& start(const TerminalLocatedShellEvent& mark, std::string_view text,
                                          const Uuid& generation, Date now);
  void appendOutput(ByteView bytes);
  void releaseOutput();
  std::optional<std::size_t> indexOf(const Uuid& commandID) const;

  std::deque<TerminalRuntimeCommandInfo> commands_;
  std::deque<Evidence> evidence_;  // of each command, at its index
  TerminalShellIntegrationParser parser_;
  ByteQueue activeOutput_;  // the end of what the running command showed
  TerminalBellParser activeOutputParser_;
};

}  // namespace velotide
