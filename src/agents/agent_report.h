#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "agents/agent_snapshot.h"
#include "base/uuid.h"

namespace velotide {

// The right to report the state of one agent run.
struct TerminalAgentGrant {
  Uuid instanceID;
  Uuid runID;
  std::string token;

  bool operator==(const TerminalAgentGrant&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("instanceID", self.instanceID);
    visit("runID", self.runID);
    visit("token", self.token);
  }
};

// What a bound agent says of itself.
struct TerminalAgentReport {
  Uuid instanceID;
  Uuid runID;
  std::string token;
  std::uint64_t sequence = 0;
  TerminalAgentActivity activity = TerminalAgentActivity::unknown;
  std::optional<TerminalAgentBlockReason> blockReason;
  std::optional<TerminalAgentResult> result;
  std::optional<TerminalAgentReportedContext> context;

  bool operator==(const TerminalAgentReport&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("instanceID", self.instanceID);
    visit("runID", self.runID);
    visit("token", self.token);
    visit("sequence", self.sequence);
    visit("activity", self.activity);
    visit("blockReason", self.blockReason);
    visit("result", self.result);
    visit("context", self.context);
  }
};

// Why a bind or a report was refused; thrown as Failure, sent by raw word.
enum class TerminalAgentReportError { invalidCapability, staleSequence, invalidState, unavailable };
constexpr auto rawWords(TerminalAgentReportError) {
  return std::array{"invalidCapability", "staleSequence", "invalidState", "unavailable"};
}

}  // namespace velotide
