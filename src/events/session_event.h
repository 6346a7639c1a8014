#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "agents/agent_snapshot.h"
#include "base/time.h"
#include "base/uuid.h"
#include "commands/command_info.h"
#include "events/attention_item.h"

// What the event log holds and hands out.
namespace velotide {

enum class TerminalSessionEventKind {
  registered,
  locationChanged,
  closed,
  processExited,
  commandStarted,
  commandFinished,
  outputChanged,
  controlChanged,
  agentChanged,
  attentionCreated,
  attentionUpdated,
  attentionResolved,
};
constexpr auto rawWords(TerminalSessionEventKind) {
  return std::array{"registered",     "locationChanged",  "closed",           "processExited",
                    "commandStarted", "commandFinished",  "outputChanged",    "controlChanged",
                    "agentChanged",   "attentionCreated", "attentionUpdated", "attentionResolved"};
}

enum class TerminalSessionLocation { mainWindow, detached };
constexpr auto rawWords(TerminalSessionLocation) { return std::array{"mainWindow", "detached"}; }

// The point just after event `sequence` of one run of the service; 0 is the point before the first.
struct TerminalEventCursor {
  Uuid appEpoch;
  std::uint64_t sequence = 0;

  bool operator==(const TerminalEventCursor&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("appEpoch", self.appEpoch);
    visit("sequence", self.sequence);
  }
};

struct TerminalSessionEvent {
  TerminalEventCursor cursor;
  Uuid tabID;
  TerminalSessionEventKind kind = TerminalSessionEventKind::registered;
  Date occurredAt;
  std::optional<Uuid> commandID;
  std::optional<TerminalCommandLifecycleState> commandState;
  // The session's output revision, on outputChanged alone.
  std::optional<std::int64_t> revision;
  std::optional<TerminalAgentSnapshot> agent;
  std::optional<TerminalSessionLocation> location;
  std::optional<TerminalAttentionItem> attention;

  bool operator==(const TerminalSessionEvent&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("cursor", self.cursor);
    visit("tabID", self.tabID);
    visit("kind", self.kind);
    visit("occurredAt", self.occurredAt);
    visit("commandID", self.commandID);
    visit("commandState", self.commandState);
    visit("revision", self.revision);
    visit("agent", self.agent);
    visit("location", self.location);
    visit("attention", self.attention);
  }
};

struct TerminalEventBatch {
  std::vector<TerminalSessionEvent> events;
  // Where the next read continues.
  TerminalEventCursor nextCursor;
  bool hasMore = false;

  bool operator==(const TerminalEventBatch&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("events", self.events);
    visit("nextCursor", self.nextCursor);
    visit("hasMore", self.hasMore);
  }
};

// A session as a host of the protocol announces it; the service itself builds none.
struct TerminalRegisteredSessionSnapshot {
  Uuid id;
  TerminalSessionLocation location = TerminalSessionLocation::mainWindow;
  std::optional<TerminalAgentSnapshot> agent;

  bool operator==(const TerminalRegisteredSessionSnapshot&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("id", self.id);
    visit("location", self.location);
    visit("agent", self.agent);
  }
};

// Why a read of the log failed; thrown as Failure.
enum class TerminalEventReadError { appRestarted, cursorExpired, futureCursor };
constexpr auto rawWords(TerminalEventReadError) {
  return std::array{"app_restarted", "cursor_expired", "future_cursor"};
}

}  // namespace velotide
