#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "base/time.h"
#include "base/uuid.h"

namespace velotide {

enum class TerminalCommandLifecycleState {
  running,
  succeeded,
  failed,
  interrupted,
  superseded,
  completedUnknownStatus,
};
constexpr auto rawWords(TerminalCommandLifecycleState) {
  return std::array{"running",     "succeeded",  "failed",
                    "interrupted", "superseded", "completed_unknown_status"};
}

// One shell command that ran in a session.
struct TerminalRuntimeCommandInfo {
  Uuid id;
  // The output stream it ran in, and where in it the mark of its start begins.
  Uuid generation;
  std::uint64_t markerOffset = 0;
  Date startedAt;
  // Absent while it runs.
  std::optional<Date> endedAt;
  std::optional<std::int32_t> exitCode;
  TerminalCommandLifecycleState state = TerminalCommandLifecycleState::running;

  // The identity of the command whose start mark lies at `markerOffset`: the same place in the same stream
  // always has the same one.
  static Uuid identity(const Uuid& generation, std::uint64_t markerOffset);

  bool operator==(const TerminalRuntimeCommandInfo&) const = default;
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

}  // namespace velotide
