#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agents/agent_report.h"
#include "agents/agent_snapshot.h"
#include "base/uuid.h"
#include "events/attention_item.h"
#include "events/session_event.h"
#include "protocol/version.h"
#include "waits/wait_records.h"

// What travels through the mailbox, one record to a file.
namespace velotide {

// The actions that the mailbox knows. A request names its action as text, because one that is not among these
// is answered too.
enum class RuntimeNativeAction {
  listAttention,
  getAgentState,
  readSessionEvents,
  waitSession,
  cancelWait,
  cancelAllWaits,
  bindNativeAgent,
  reportAgentState,
};
constexpr auto rawWords(RuntimeNativeAction) {
  return std::array{"list_attention", "get_agent_state",  "read_session_events", "wait_session",
                    "cancel_wait",    "cancel_all_waits", "bind_native_agent",   "report_agent_state"};
}

struct RuntimeNativeRequest {
  // The text of a UUID; the request's file and the response's bear it as their name.
  std::string id;
  std::string action;
  // The text of the session's UUID.
  std::optional<std::string> tab;
  std::optional<std::string> nativeAgentToken;
  std::optional<TerminalAgentKind> agentKind;
  std::optional<TerminalAgentReport> agentReport;
  std::optional<TerminalEventCursor> eventCursor;
  std::optional<std::int64_t> eventLimit;
  std::optional<TerminalWaitSpec> waitSpec;
  // Owner of the waits.
  std::optional<std::string> controlID;
  std::optional<std::string> waitID;
  std::optional<bool> noResponse;

  bool operator==(const RuntimeNativeRequest&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("id", self.id);
    visit("action", self.action);
    visit("tab", self.tab);
    visit("nativeAgentToken", self.nativeAgentToken);
    visit("agentKind", self.agentKind);
    visit("agentReport", self.agentReport);
    visit("eventCursor", self.eventCursor);
    visit("eventLimit", self.eventLimit);
    visit("waitSpec", self.waitSpec);
    visit("controlID", self.controlID);
    visit("waitID", self.waitID);
    visit("noResponse", self.noResponse);
  }
};

struct RuntimeNativeResponse {
  // Of the request; for the result of a wait, of the request that began it.
  std::string id;
  std::string action;
  std::string version = std::string(AppVersion::value);
  std::int64_t schemaVersion = 1;
  std::string appName = "Velotide";
  // Where the event log stood.
  std::uint64_t snapshotSequence = 0;
  bool ok = true;
  std::optional<TerminalAgentGrant> agentGrant;
  std::optional<TerminalAgentSnapshot> agent;
  std::optional<std::string> error;
  std::optional<TerminalEventBatch> eventBatch;
  std::optional<TerminalWaitResult> waitResult;
  std::optional<std::vector<TerminalAttentionItem>> attention;

  bool operator==(const RuntimeNativeResponse&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("id", self.id);
    visit("action", self.action);
    visit("version", self.version);
    visit("schemaVersion", self.schemaVersion);
    visit("appName", self.appName);
    visit("snapshotSequence", self.snapshotSequence);
    visit("ok", self.ok);
    visit("agentGrant", self.agentGrant);
    visit("agent", self.agent);
    visit("error", self.error);
    visit("eventBatch", self.eventBatch);
    visit("waitResult", self.waitResult);
    visit("attention", self.attention);
  }
};

// Tells tools which run of the service they face.
struct RuntimeReadOnlyMetadata {
  std::int64_t schemaVersion = 1;
  Uuid appEpoch;
  std::int32_t pid = 0;
  std::string version = std::string(AppVersion::value);
  // Where the event log stood when the mailbox was opened.
  TerminalEventCursor cursor;

  bool operator==(const RuntimeReadOnlyMetadata&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("schemaVersion", self.schemaVersion);
    visit("appEpoch", self.appEpoch);
    visit("pid", self.pid);
    visit("version", self.version);
    visit("cursor", self.cursor);
  }
};

}  // namespace velotide
