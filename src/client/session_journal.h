#pragma once

#include <functional>
#include <vector>

#include "client/service.h"
#include "commands/command_info.h"

// What a session's output that is still held says of its commands.
namespace velotide::client {

// Reads the output of `session` from `offset`, or from the oldest byte behind it that is held, up to what
// there is now, piece by piece, until `take` answers false.
void readJournal(Service& service, const TerminalRuntimeSessionInfo& session, std::uint64_t offset,
                 const std::function<bool(ByteView piece, std::uint64_t offset)>& take);

// A command as far as it is known: times come from the service alone.
struct KnownCommand {
  Uuid id;
  Uuid generation;
  std::uint64_t markerOffset = 0;
  std::optional<Date> startedAt;
  std::optional<Date> endedAt;
  std::optional<std::int32_t> exitCode;
  TerminalCommandLifecycleState state = TerminalCommandLifecycleState::running;

  static KnownCommand of(const TerminalRuntimeCommandInfo& command);
  bool isRunning() const { return state == TerminalCommandLifecycleState::running; }

  bool operator==(const KnownCommand&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("id", self.id);
    visit("generation", self.generation);
    visit("markerOffset", self.markerOffset);
    visit("startedAt", self.startedAt);
    visit("endedAt", self.endedAt);
    visit("exitCode", self.exitCode);
    visit("state", self.state);
  }
};

// The commands whose start marks are held behind `offset`, oldest first, by their marks: without times.
struct HeldCommands {
  std::vector<KnownCommand> commands;
  // Bytes behind `offset` that are no longer held.
  std::uint64_t missed = 0;
};
HeldCommands heldCommands(Service& service, const TerminalRuntimeSessionInfo& session, std::uint64_t offset);

}  // namespace velotide::client
