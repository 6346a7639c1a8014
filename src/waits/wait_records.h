#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "agents/agent_snapshot.h"
#include "base/failure.h"
#include "base/record.h"
#include "base/time.h"
#include "base/uuid.h"
#include "commands/command_info.h"
#include "events/attention_item.h"
#include "events/session_event.h"

// What a tool waits for and what it is told in the end.
namespace velotide {

enum class TerminalWaitCondition { commandFinished, agentState, attention, outputChanged, events };
constexpr auto rawWords(TerminalWaitCondition) {
  return std::array{"commandFinished", "agentState", "attention", "outputChanged", "events"};
}

enum class TerminalWaitOutcome {
  matched,
  timeout,
  cancelled,
  targetClosed,
  targetReplaced,
  appExited,
  appRestarted,
  cursorExpired,
  futureCursor,
  disabled,
};
constexpr auto rawWords(TerminalWaitOutcome) {
  return std::array{"matched",   "timeout",      "cancelled",     "targetClosed", "targetReplaced",
                    "appExited", "appRestarted", "cursorExpired", "futureCursor", "disabled"};
}

// Why a wait was refused; thrown as Failure, sent by raw word.
enum class TerminalWaitError { invalidSpec, duplicateID, capacityExceeded, unknownWait };
constexpr auto rawWords(TerminalWaitError) {
  return std::array{"invalidSpec", "duplicateID", "capacityExceeded", "unknownWait"};
}

// A condition of one session (of any, for events without a session), judged by what happens after a cursor.
// Fields that a condition does not use are ignored.
struct TerminalWaitSpec {
  TerminalWaitCondition condition = TerminalWaitCondition::events;
  TerminalEventCursor after;
  std::optional<Uuid> tabID{};
  std::optional<Uuid> commandID{};
  std::optional<Uuid> instanceID{};
  std::optional<Uuid> runID{};
  std::optional<TerminalAgentActivity> activity{};
  // The output revision that the client has already seen.
  std::optional<std::int64_t> revision{};
  // 0 asks for an answer at once.
  Seconds timeoutSeconds = 30;

  bool operator==(const TerminalWaitSpec&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("condition", self.condition);
    visit("after", self.after);
    visit("tabID", self.tabID);
    visit("commandID", self.commandID);
    visit("instanceID", self.instanceID);
    visit("runID", self.runID);
    visit("activity", self.activity);
    visit("revision", self.revision);
    visit("timeoutSeconds", self.timeoutSeconds, record::defaulted);
  }
};

struct TerminalWaitResult {
  std::string waitID;
  TerminalWaitOutcome outcome = TerminalWaitOutcome::matched;
  // Reading on from here neither misses nor repeats what ended the wait.
  TerminalEventCursor cursor;
  // Of a match, by condition.
  std::optional<TerminalSessionEvent> event{};
  std::optional<TerminalAgentSnapshot> agent{};
  std::optional<Uuid> commandID{};
  std::optional<TerminalCommandLifecycleState> commandState{};
  std::optional<TerminalAttentionItem> attention{};
  std::optional<std::int64_t> revision{};

  bool operator==(const TerminalWaitResult&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("waitID", self.waitID);
    visit("outcome", self.outcome);
    visit("cursor", self.cursor);
    visit("event", self.event);
    visit("agent", self.agent);
    visit("commandID", self.commandID);
    visit("commandState", self.commandState);
    visit("attention", self.attention);
    visit("revision", self.revision);
  }
};

struct TerminalWaitCommandSnapshot {
  bool finished = false;
  TerminalCommandLifecycleState state = TerminalCommandLifecycleState::running;
};

// One session as a wait looks at it. A view: it borrows from the session and is good only until something
// happens to it.
struct TerminalWaitTargetSnapshot {
  // Null when no agent is known.
  const TerminalAgentSnapshot* agent = nullptr;
  std::int64_t outputRevision = 0;
  // A command that the session still remembers. Asked for every pending wait at every event of the session:
  // it should look at the newest command first, the only one that can be running.
  std::function<std::optional<TerminalWaitCommandSnapshot>(const Uuid& commandID)> command{};
};

}  // namespace velotide
