#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "agents/agent_report.h"
#include "base/bytes.h"
#include "base/uuid.h"
#include "events/session_event.h"
#include "protocol/limits.h"
#include "protocol/output_cursor.h"
#include "protocol/session_records.h"

namespace velotide {

enum class TerminalRuntimeAction {
  hello,
  create,
  list,
  read,
  subscribe,
  inspectInput,
  input,
  resize,
  close,
  restartExited,
  acquireControl,
  renewControl,
  releaseControl,
  listAttention,
  acknowledgeAttention,
  readEvents,
  shutdownIfEmpty,
  diagnostics,
  bindAgent,
  reportAgent,
  getAgentState,
  configureReminders,
};
constexpr auto rawWords(TerminalRuntimeAction) {
  return std::array{"hello",
                    "create",
                    "list",
                    "read",
                    "subscribe",
                    "inspectInput",
                    "input",
                    "resize",
                    "close",
                    "restartExited",
                    "acquireControl",
                    "renewControl",
                    "releaseControl",
                    "listAttention",
                    "acknowledgeAttention",
                    "readEvents",
                    "shutdownIfEmpty",
                    "diagnostics",
                    "bindAgent",
                    "reportAgent",
                    "getAgentState",
                    "configureReminders"};
}

enum class TerminalRuntimeInputSource { human, ai, protocolReply };
constexpr auto rawWords(TerminalRuntimeInputSource) { return std::array{"human", "ai", "protocolReply"}; }

struct TerminalRuntimeRequest {
  std::int64_t protocolVersion = TerminalRuntimeLimits::protocolVersion;
  // Echoed in the response; a mutating request that is sent again under it is answered, not repeated.
  Uuid id;
  TerminalRuntimeAction action = TerminalRuntimeAction::hello;
  std::optional<std::string> capability;
  std::optional<Uuid> sessionID;
  std::optional<Uuid> generation;
  std::optional<Uuid> controlEpoch;
  std::optional<TerminalRuntimeLaunch> launch;
  std::optional<TerminalRuntimeOutputCursor> after;
  std::optional<CarriedBytes> data;
  std::optional<std::int64_t> columns;
  std::optional<std::int64_t> rows;
  std::optional<std::string> owner;
  std::optional<TerminalRuntimeInputSource> source;
  std::optional<std::uint64_t> inputSequence;
  std::optional<bool> expectedEchoEnabled;
  std::optional<std::int32_t> expectedForegroundPID;
  std::optional<Uuid> attentionID;
  std::optional<std::int64_t> attentionVersion;
  std::optional<TerminalReminderPolicy> reminderPolicy;
  std::optional<TerminalEventCursor> eventAfter;
  std::optional<std::int64_t> eventLimit;
  std::optional<TerminalAgentKind> agentKind;
  std::optional<TerminalAgentReport> agentReport;
  std::optional<Uuid> commandID;

  // A new request under a fresh identifier.
  static TerminalRuntimeRequest make(TerminalRuntimeAction action) {
    TerminalRuntimeRequest request;
    request.id = Uuid::random();
    request.action = action;
    return request;
  }

  bool operator==(const TerminalRuntimeRequest&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("protocolVersion", self.protocolVersion);
    visit("id", self.id);
    visit("action", self.action);
    visit("capability", self.capability);
    visit("sessionID", self.sessionID);
    visit("generation", self.generation);
    visit("controlEpoch", self.controlEpoch);
    visit("launch", self.launch);
    visit("after", self.after);
    visit("data", self.data);
    visit("columns", self.columns);
    visit("rows", self.rows);
    visit("owner", self.owner);
    visit("source", self.source);
    visit("inputSequence", self.inputSequence);
    visit("expectedEchoEnabled", self.expectedEchoEnabled);
    visit("expectedForegroundPID", self.expectedForegroundPID);
    visit("attentionID", self.attentionID);
    visit("attentionVersion", self.attentionVersion);
    visit("reminderPolicy", self.reminderPolicy);
    visit("eventAfter", self.eventAfter);
    visit("eventLimit", self.eventLimit);
    visit("agentKind", self.agentKind);
    visit("agentReport", self.agentReport);
    visit("commandID", self.commandID);
  }
};

}  // namespace velotide
