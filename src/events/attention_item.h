#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "agents/agent_snapshot.h"
#include "base/failure.h"
#include "base/time.h"
#include "base/uuid.h"

// Notices to the person about one session.
namespace velotide {

enum class TerminalAttentionKind {
  approval,
  question,
  blocked,
  completed,
  failed,
  bell,
  commandCompleted,
  commandFailed,
  processExited,
};
constexpr auto rawWords(TerminalAttentionKind) {
  return std::array{"approval", "question",         "blocked",       "completed",    "failed",
                    "bell",     "commandCompleted", "commandFailed", "processExited"};
}

// Somebody waits for the person: such an item is never dropped for want of room.
constexpr bool requiresAnswer(TerminalAttentionKind kind) { return kind <= TerminalAttentionKind::blocked; }

// The terminal event behind an item that no agent raised.
struct TerminalAttentionTerminalContext {
  enum class Kind { bell, commandFinished, processExited };
  friend constexpr auto rawWords(Kind) { return std::array{"bell", "commandFinished", "processExited"}; }

  Kind kind = Kind::bell;
  // With the session and the kind this tells a repetition from a new event.
  Uuid eventID;
  std::optional<Uuid> commandID;
  std::optional<std::int32_t> exitCode;
  bool failed = false;
  std::int64_t occurrences = 1;

  TerminalAttentionKind attentionKind() const;

  bool operator==(const TerminalAttentionTerminalContext&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("kind", self.kind);
    visit("eventID", self.eventID);
    visit("commandID", self.commandID);
    visit("exitCode", self.exitCode);
    visit("failed", self.failed);
    visit("occurrences", self.occurrences);
  }
};

struct TerminalAttentionItem {
  Uuid id;
  Uuid tabID;
  // Of the agent concerned; absent for terminal items.
  std::optional<Uuid> instanceID;
  std::optional<Uuid> runID;
  TerminalAttentionKind kind = TerminalAttentionKind::bell;
  Date createdAt;
  // Sequence of the event that announced the item.
  std::uint64_t createdSequence = 0;
  std::optional<TerminalAgentSource> source;
  std::optional<TerminalAgentConfidence> confidence;
  std::optional<TerminalAttentionTerminalContext> terminal;
  std::optional<TerminalAgentReportedContext> context;
  // Grows by one with every change.
  std::int64_t version = 1;
  std::optional<Date> readAt;
  // Once set the item is no longer active.
  std::optional<Date> resolvedAt;
  // The agent's state became unknown while the item waited.
  bool isStale = false;

  bool isAgent() const { return instanceID.has_value(); }

  bool operator==(const TerminalAttentionItem&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("id", self.id);
    visit("tabID", self.tabID);
    visit("instanceID", self.instanceID);
    visit("runID", self.runID);
    visit("kind", self.kind);
    visit("createdAt", self.createdAt);
    visit("createdSequence", self.createdSequence);
    visit("source", self.source);
    visit("confidence", self.confidence);
    visit("terminal", self.terminal);
    visit("context", self.context);
    visit("version", self.version);
    visit("readAt", self.readAt);
    visit("resolvedAt", self.resolvedAt);
    visit("isStale", self.isStale);
  }
};

// Why an acknowledgement was refused; thrown as Failure, sent by raw word.
enum class TerminalAttentionMutationError { notFound, staleVersion, unavailable };
constexpr auto rawWords(TerminalAttentionMutationError) {
  return std::array{"notFound", "staleVersion", "unavailable"};
}

}  // namespace velotide
