#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "base/time.h"
#include "base/uuid.h"

// What is known of the AI agent in a session.
namespace velotide {

enum class TerminalAgentKind { claude, codex, tesseral };
constexpr auto rawWords(TerminalAgentKind) { return std::array{"claude", "codex", "tesseral"}; }

enum class TerminalAgentActivity { unknown, working, idle, blocked, exited };
constexpr auto rawWords(TerminalAgentActivity) {
  return std::array{"unknown", "working", "idle", "blocked", "exited"};
}

enum class TerminalAgentBlockReason { approval, question, other };
constexpr auto rawWords(TerminalAgentBlockReason) { return std::array{"approval", "question", "other"}; }

enum class TerminalAgentResult { completed, failed, interrupted, unknown };
constexpr auto rawWords(TerminalAgentResult) {
  return std::array{"completed", "failed", "interrupted", "unknown"};
}

// The road by which the latest evidence came, and how far to trust it.
enum class TerminalAgentSource { integration, foregroundProcess, shellCommand };
constexpr auto rawWords(TerminalAgentSource) {
  return std::array{"integration", "foregroundProcess", "shellCommand"};
}

enum class TerminalAgentConfidence { high, medium, low };
constexpr auto rawWords(TerminalAgentConfidence) { return std::array{"high", "medium", "low"}; }

// Why the snapshot last changed.
enum class TerminalAgentReason {
  bound,
  reported,
  launched,
  foregroundDetected,
  screenApproval,
  screenQuestion,
  screenWorking,
  unrecognizedScreen,
  expired,
  processExited,
  commandEnded,
  foregroundLost,
};
constexpr auto rawWords(TerminalAgentReason) {
  return std::array{"bound",          "reported",       "launched",      "foregroundDetected",
                    "screenApproval", "screenQuestion", "screenWorking", "unrecognizedScreen",
                    "expired",        "processExited",  "commandEnded",  "foregroundLost"};
}

// What an agent says of its own session, task and gate.
struct TerminalAgentReportedContext {
  Uuid sessionID;
  std::optional<std::string> taskID;
  std::optional<std::string> gateID;

  // Both texts, where present, are 1 to 128 bytes of Unicode letters, decimal digits and "-_:./".
  bool isValid() const;

  bool operator==(const TerminalAgentReportedContext&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("sessionID", self.sessionID);
    visit("taskID", self.taskID);
    visit("gateID", self.gateID);
  }
};

struct TerminalAgentSnapshot {
  Uuid instanceID;
  Uuid runID;
  TerminalAgentKind kind = TerminalAgentKind::claude;
  TerminalAgentActivity activity = TerminalAgentActivity::unknown;
  std::optional<TerminalAgentBlockReason> blockReason;
  std::optional<TerminalAgentResult> lastResult;
  TerminalAgentSource source = TerminalAgentSource::integration;
  TerminalAgentConfidence confidence = TerminalAgentConfidence::high;
  TerminalAgentReason reason = TerminalAgentReason::bound;
  Date updatedAt;
  // When the activity stops being trusted.
  std::optional<Date> expiresAt;
  // Of the last accepted report; 0 before the first.
  std::uint64_t reportSequence = 0;
  std::int64_t ruleVersion = 0;
  std::optional<TerminalAgentReportedContext> context;

  // Whether two snapshots say the same of the agent: equal but for updatedAt, expiresAt and reportSequence.
  static bool sameEvidence(const std::optional<TerminalAgentSnapshot>& one,
                           const std::optional<TerminalAgentSnapshot>& other);

  bool operator==(const TerminalAgentSnapshot&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("instanceID", self.instanceID);
    visit("runID", self.runID);
    visit("kind", self.kind);
    visit("activity", self.activity);
    visit("blockReason", self.blockReason);
    visit("lastResult", self.lastResult);
    visit("source", self.source);
    visit("confidence", self.confidence);
    visit("reason", self.reason);
    visit("updatedAt", self.updatedAt);
    visit("expiresAt", self.expiresAt);
    visit("reportSequence", self.reportSequence);
    visit("ruleVersion", self.ruleVersion);
    visit("context", self.context);
  }
};

}  // namespace velotide
