#include "client/agent_event.h"

#include "base/record.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

using Meaning = AgentEvent::Meaning;
using BlockReason = TerminalAgentBlockReason;
using Result = TerminalAgentResult;

constexpr std::size_t maximumName = 1024;

struct ClaudePayload {
  std::string event;
  std::string session;
  // Present where a sub-agent speaks.
  std::optional<std::string> subagent;
  std::optional<std::string> notification;
  std::optional<std::string> tool;

  static void fields(auto& self, auto& visit) {
    visit("hook_event_name", self.event);
    visit("session_id", self.session);
    visit("agent_id", self.subagent);
    visit("notification_type", self.notification);
    visit("tool_name", self.tool);
  }
};

struct CodexPayload {
  std::optional<std::string> event;
  std::optional<std::string> session;
  std::optional<std::string> turn;
  std::optional<std::string> notification;
  std::optional<std::string> notifiedSession;
  std::optional<std::string> notifiedTurn;

  static void fields(auto& self, auto& visit) {
    visit("hook_event_name", self.event);
    visit("session_id", self.session);
    visit("turn_id", self.turn);
    visit("type", self.notification);
    visit("thread-id", self.notifiedSession);
    visit("turn-id", self.notifiedTurn);
  }
};

// A row holds for the events of its name; where it has a detail, for those of that notification type or tool
// alone. The first that fits counts. Events that are in no row say nothing sure about the state.
struct Row {
  std::string_view event;
  std::string_view detail;
  Meaning meaning;
  std::optional<BlockReason> blockReason = {};
  std::optional<Result> result = {};
};

constexpr auto claudeRows = std::to_array<Row>({
    {"SessionStart", "", Meaning::sessionBegins},
    {"UserPromptSubmit", "", Meaning::turnBegins},
    {"PreToolUse", "AskUserQuestion", Meaning::blocks, BlockReason::question},
    {"PreToolUse", "", Meaning::goesOn},
    {"PostToolUse", "", Meaning::goesOn},
    {"PermissionDenied", "", Meaning::goesOn},
    {"PermissionRequest", "", Meaning::blocks, BlockReason::approval},
    {"Notification", "permission_prompt", Meaning::blocks, BlockReason::approval},
    {"Notification", "agent_needs_input", Meaning::blocks, BlockReason::question},
    {"Elicitation", "", Meaning::blocks, BlockReason::question},
    {"Stop", "", Meaning::turnEnds, {}, Result::completed},
    {"StopFailure", "", Meaning::turnEnds, {}, Result::failed},
    {"SessionEnd", "", Meaning::sessionEnds},
});

constexpr auto codexRows = std::to_array<Row>({
    {"SessionStart", "", Meaning::sessionBegins},
    {"UserPromptSubmit", "", Meaning::turnBegins},
    {"PreToolUse", "", Meaning::goesOn},
    {"PostToolUse", "", Meaning::goesOn},
    {"PermissionRequest", "", Meaning::blocks, BlockReason::approval},
    {"Stop", "", Meaning::turnEnds, {}, Result::completed},
    {"agent-turn-complete", "", Meaning::turnEnds, {}, Result::completed},
});

std::optional<AgentEvent> translate(std::span<const Row> rows, std::string_view event,
                                    std::string_view detail) {
  for (const Row& row : rows) {
    if (row.event != event || (!row.detail.empty() && row.detail != detail)) continue;
    return AgentEvent{row.meaning, row.blockReason, row.result, {}, {}};
  }
  return std::nullopt;
}

[[noreturn]] void failUndocumented(const std::string& why) {
  throw Trouble("This is not what the agent's documentation says a hook gets: " + why +
                ". Compare the agent's version with the ones that the integration is for.");
}

template <Record T>
T decodePayload(std::span<char> payload) {
  if (payload.empty()) failUndocumented("no input at all");
  JsonDocument document;
  std::optional<T> decoded = decodeText<T>(document, payload);
  if (!decoded) failUndocumented("no JSON object with the documented fields");
  return std::move(*decoded);
}

// The names are kept from call to call, in a file that is read only up to a limit.
const std::string& checkedName(const std::string& name) {
  if (name.size() > maximumName) failUndocumented("a session or turn with a name of more than 1 KiB");
  return name;
}

}  // namespace

std::optional<TerminalAgentActivity> AgentEvent::activity() const {
  switch (meaning) {
    case Meaning::sessionBegins:
      return std::nullopt;
    case Meaning::turnBegins:
    case Meaning::goesOn:
      return TerminalAgentActivity::working;
    case Meaning::blocks:
      return TerminalAgentActivity::blocked;
    case Meaning::turnEnds:
      return TerminalAgentActivity::idle;
    case Meaning::sessionEnds:
      return TerminalAgentActivity::exited;
  }
  return std::nullopt;
}

std::optional<TerminalAgentReportedContext> AgentEvent::context() const {
  const std::optional<Uuid> session = Uuid::parse(agentSession);
  if (!session) return std::nullopt;
  TerminalAgentReportedContext context{*session, turn, {}};
  if (!context.isValid()) context.taskID.reset();
  return context;
}

std::optional<AgentEvent> readClaudeEvent(std::span<char> payload) {
  const auto read = decodePayload<ClaudePayload>(payload);
  // The main agent goes on or waits whatever its sub-agents do.
  if (read.subagent) return std::nullopt;
  if (read.event == "Notification" && !read.notification) failUndocumented("a notification without its type");
  auto event =
      translate(claudeRows, read.event, read.notification ? *read.notification : read.tool.value_or(""));
  if (event) event->agentSession = checkedName(read.session);
  return event;
}

std::optional<AgentEvent> readCodexEvent(std::span<char> payload) {
  const auto read = decodePayload<CodexPayload>(payload);
  if (!read.event && !read.notification) failUndocumented("neither a hook's event nor a notification's type");
  auto event = translate(codexRows, read.event ? *read.event : *read.notification, "");
  if (!event) return std::nullopt;
  const std::optional<std::string>& session = read.event ? read.session : read.notifiedSession;
  if (!session) failUndocumented("an event without its session");
  event->agentSession = checkedName(*session);
  event->turn = read.event ? read.turn : read.notifiedTurn;
  if (event->turn) checkedName(*event->turn);
  return event;
}

}  // namespace velotide::client
