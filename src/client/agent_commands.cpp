#include <poll.h>
#include <unistd.h>

#include "client/commands.h"
#include "client/session_agent.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

// More than any tool's result in a hook's payload; and how long its next piece may take.
constexpr std::size_t maximumPayload = 64 * 1024 * 1024;
constexpr Seconds payloadPatience = 1;

constexpr const char* lostBinding =
    "The binding no longer holds: another agent was bound in this session, or this one's end was seen. "
    "Bind again: velotide agent bind KIND";

// Carries out `action` where there is a hosted session. Outside, and where the session or its service ended
// meanwhile, nobody wants to know: nothing is done, and that is a success.
template <typename Action>
int insideSession(Action action) {
  try {
    if (const std::optional<AgentContext> context = AgentContext::find()) action(*context);
  } catch (const Trouble& trouble) {
    if (trouble.status != ExitStatus::notRunning) throw;
  }
  return ExitStatus::success;
}

template <Enumerated Word>
Word parseWord(const std::string& text, const char* what) {
  if (const std::optional<Word> word = fromRawWord<Word>(text)) return *word;
  std::string known;
  for (const char* word : rawWords(Word{})) known += std::string(known.empty() ? "" : ", ") + word;
  throw Trouble("\"" + text + "\" is no " + what + ". There are: " + known + ".");
}

AgentState stateFrom(const AgentReportOptions& options) {
  AgentState state;
  state.activity = parseWord<TerminalAgentActivity>(options.activity, "state");
  if (state.activity == TerminalAgentActivity::blocked)
    state.blockReason = parseWord<TerminalAgentBlockReason>(options.detail, "reason to be blocked");
  else if (!options.detail.empty())
    state.result = parseWord<TerminalAgentResult>(options.detail, "result");
  if (options.agentSession.empty() && options.task.empty() && options.gate.empty()) return state;
  const std::optional<Uuid> session = Uuid::parse(options.agentSession);
  if (!session) throw Trouble("A task or gate needs the agent's session, a UUID: --agent-session UUID.");
  state.context = TerminalAgentReportedContext{*session, {}, {}};
  if (!options.task.empty()) state.context->taskID = options.task;
  if (!options.gate.empty()) state.context->gateID = options.gate;
  return state;
}

void reportState(const AgentContext& context, const AgentState& state) {
  SessionAgent agent(context);
  if (!agent.record() || !agent.record()->grant) {
    // Without a service there was nobody to bind with, and nobody to tell.
    ServiceRoot::find(context.serviceRoot).connect();
    throw Trouble("No agent is bound in this session. Bind one first: velotide agent bind KIND");
  }
  if (!agent.report(state)) throw Trouble(lostBinding);
}

// What there is on standard input, to its end; nothing from a terminal.
ByteQueue readPayload() {
  ByteQueue payload;
  if (::isatty(STDIN_FILENO) == 1) return payload;
  while (payload.size() <= maximumPayload && waitFor(STDIN_FILENO, POLLIN, payloadPatience)) {
    const std::span<std::uint8_t> room = payload.reserve(64 * 1024);
    const ssize_t count = ::read(STDIN_FILENO, room.data(), room.size());
    if (count <= 0) break;
    payload.commit(static_cast<std::size_t>(count));
  }
  return payload;
}

void follow(SessionAgent& agent, TerminalAgentKind kind, const AgentEvent& event) {
  const AgentAnswer answer = answerTo(event, kind, agent.record(), SystemClock().date());
  // A session may begin again, in another command, with the end of the earlier one never told.
  const bool beginsAnew = event.meaning == AgentEvent::Meaning::sessionBegins && !answer.binds;
  if (answer.binds || (beginsAnew && !agent.isFollowed())) agent.bind(kind, event.agentSession);
  if (!answer.reports) return;
  const AgentState state{*event.activity(), event.blockReason, event.result, event.context()};
  agent.remember(event);
  const bool wasLost = agent.record()->isLost;
  if (agent.report(state) || event.meaning == AgentEvent::Meaning::sessionEnds) return;
  // Whom the person speaks to is the one to follow.
  if (event.meaning == AgentEvent::Meaning::turnBegins || agent.mayReturn()) {
    agent.bind(kind, event.agentSession);
    agent.remember(event);
    if (agent.report(state)) return;
  }
  // Told once, not with each tool that the agent calls.
  if (!wasLost) throw Trouble(lostBinding);
}

}  // namespace

int bindAgent(const std::string& kind) {
  return insideSession([&](const AgentContext& context) {
    SessionAgent(context).bind(parseWord<TerminalAgentKind>(kind, "agent"));
  });
}

int reportAgent(const AgentReportOptions& options) {
  return insideSession([&](const AgentContext& context) { reportState(context, stateFrom(options)); });
}

int followAgentHook(const std::string& name, const std::string& argument) {
  ByteQueue payload;
  if (argument.empty())
    payload = readPayload();
  else
    payload.append(argument);
  return insideSession([&](const AgentContext& context) {
    const auto kind = parseWord<TerminalAgentKind>(name, "agent");
    if (kind == TerminalAgentKind::tesseral)
      throw Trouble(
          "Agents of this kind bind and report by themselves; hooks are those of claude and codex.");
    if (payload.size() > maximumPayload) throw Trouble("The hook's input exceeds 64 MiB.");
    const std::optional<AgentEvent> event = kind == TerminalAgentKind::claude
                                                ? readClaudeEvent(payload.mutableText())
                                                : readCodexEvent(payload.mutableText());
    if (!event) return;
    SessionAgent agent(context);
    follow(agent, kind, *event);
  });
}

}  // namespace velotide::client
