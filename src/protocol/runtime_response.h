#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agents/agent_report.h"
#include "base/bytes.h"
#include "base/uuid.h"
#include "events/attention_item.h"
#include "events/session_event.h"
#include "protocol/output_cursor.h"
#include "protocol/runtime_request.h"
#include "protocol/session_records.h"
#include "protocol/version.h"

namespace velotide {

// How one client was dropped.
struct TerminalRuntimeDisconnectDiagnostic {
  std::string reason;
  std::optional<TerminalRuntimeAction> lastAction;
  bool subscribed = false;
  std::int64_t queuedBytes = 0;
  Seconds idleSeconds = 0;

  bool operator==(const TerminalRuntimeDisconnectDiagnostic&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("reason", self.reason);
    visit("lastAction", self.lastAction);
    visit("subscribed", self.subscribed);
    visit("queuedBytes", self.queuedBytes);
    visit("idleSeconds", self.idleSeconds);
  }
};

struct TerminalRuntimeResponse {
  std::int64_t protocolVersion = TerminalRuntimeLimits::protocolVersion;
  std::string version = std::string(AppVersion::value);
  // Changes when the service restarts.
  Uuid serviceEpoch;
  Uuid id;
  TerminalRuntimeAction action = TerminalRuntimeAction::hello;
  bool ok = true;
  std::optional<std::string> error;
  std::optional<TerminalRuntimeSessionInfo> session;
  std::optional<std::vector<TerminalRuntimeSessionInfo>> sessions;
  std::optional<CarriedBytes> data;
  std::optional<TerminalRuntimeOutputCursor> cursor;
  std::optional<std::uint64_t> latestOffset;
  std::optional<bool> hasGap;
  std::optional<bool> echoEnabled;
  std::optional<std::int32_t> foregroundPID;
  std::optional<std::vector<TerminalAttentionItem>> attention;
  std::optional<TerminalEventBatch> events;
  std::optional<TerminalEventCursor> eventHead;
  std::optional<std::vector<TerminalRuntimeDisconnectDiagnostic>> disconnects;
  std::optional<std::vector<std::string>> features;
  std::optional<TerminalAgentGrant> agentGrant;
  std::optional<std::int64_t> pendingWaits;

  bool operator==(const TerminalRuntimeResponse&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("protocolVersion", self.protocolVersion);
    visit("version", self.version);
    visit("serviceEpoch", self.serviceEpoch);
    visit("id", self.id);
    visit("action", self.action);
    visit("ok", self.ok);
    visit("error", self.error);
    visit("session", self.session);
    visit("sessions", self.sessions);
    visit("data", self.data);
    visit("cursor", self.cursor);
    visit("latestOffset", self.latestOffset);
    visit("hasGap", self.hasGap);
    visit("echoEnabled", self.echoEnabled);
    visit("foregroundPID", self.foregroundPID);
    visit("attention", self.attention);
    visit("events", self.events);
    visit("eventHead", self.eventHead);
    visit("disconnects", self.disconnects);
    visit("features", self.features);
    visit("agentGrant", self.agentGrant);
    visit("pendingWaits", self.pendingWaits);
  }
};

}  // namespace velotide
