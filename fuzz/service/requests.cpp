#include "service/requests.h"

namespace velotide {

namespace {

using Action = TerminalRuntimeAction;

constexpr std::array<std::string_view, 3> owners = {"agent", "other", "\x7f"};
// Of the mailbox's waits.
constexpr std::array<std::string_view, 3> controls = {"00000000-0000-4000-8000-000000000001",
                                                      "00000000-0000-4000-8000-000000000002", "none"};
constexpr std::array replies = {std::string_view("\x1b[1;1R"), std::string_view("\x1b[0n"),
                                std::string_view("x")};
constexpr std::array<std::int64_t, 5> sides = {80, 1, 1000, 1001, -1};
constexpr std::array<Seconds, 6> timeouts = {0, 1, 30, 60, 61, -1};

// Weighted by how much there is to find behind them.
constexpr std::array actions = {
    Action::create,         Action::input,           Action::read,           Action::subscribe,
    Action::close,          Action::restartExited,   Action::acquireControl, Action::renewControl,
    Action::releaseControl, Action::bindAgent,       Action::reportAgent,    Action::readEvents,
    Action::resize,         Action::listAttention,   Action::inspectInput,   Action::acknowledgeAttention,
    Action::list,           Action::diagnostics,     Action::getAgentState,  Action::configureReminders,
    Action::hello,          Action::shutdownIfEmpty, Action::create,         Action::subscribe,
    Action::subscribe,      Action::input,           Action::reportAgent,    Action::reportAgent};

}  // namespace

const RuntimeSession* RequestMaker::session() {
  if (state_.sessions.empty()) return nullptr;
  const auto index = static_cast<std::ptrdiff_t>(script_.below(state_.sessions.size()));
  return std::next(state_.sessions.begin(), index)->second.get();
}

TerminalRuntimeRequest RequestMaker::runtimeRequest() {
  auto request = TerminalRuntimeRequest::make(script_.pick(actions));
  request.capability = state_.socket.capability();
  if (script_.rarely()) request.capability = script_.word();
  const RuntimeSession* session = this->session();
  if (session != nullptr && request.action != Action::create) aim(request, *session);
  switch (request.action) {
    case Action::create:
    case Action::restartExited:
      request.launch = launch();
      break;
    case Action::read:
    case Action::subscribe:
      if (session != nullptr && script_.flag()) request.after = outputCursor(*session);
      break;
    case Action::input:
      fillInput(request, session);
      break;
    case Action::acquireControl:
    case Action::renewControl:
    case Action::releaseControl:
      request.owner = script_.pick(owners);
      break;
    case Action::resize:
      request.columns = script_.pick(sides);
      request.rows = script_.pick(sides);
      break;
    case Action::bindAgent:
      request.agentKind = static_cast<TerminalAgentKind>(script_.below(3));
      if (session != nullptr && script_.flag()) request.commandID = commandOf(*session);
      break;
    case Action::reportAgent:
      if (session != nullptr) request.agentReport = agentReport(*session);
      break;
    case Action::readEvents:
      request.eventAfter = eventCursor();
      request.eventLimit = static_cast<std::int64_t>(script_.byte()) - 1;
      break;
    case Action::acknowledgeAttention:
      fillAttention(request);
      break;
    case Action::configureReminders:
      request.reminderPolicy = reminderPolicy();
      break;
    case Action::shutdownIfEmpty:
      // Else hardly a run would come far.
      if (!script_.rarely()) request.action = Action::list;
      break;
    case Action::hello:
    case Action::list:
    case Action::close:
    case Action::inspectInput:
    case Action::listAttention:
    case Action::diagnostics:
    case Action::getAgentState:
      break;
  }
  return request;
}

void RequestMaker::aim(TerminalRuntimeRequest& request, const RuntimeSession& session) {
  request.sessionID = session.id();
  request.generation = session.journal().generation();
  request.controlEpoch = session.control().epoch();
  if (!script_.rarely()) return;
  const std::uint8_t wrong = script_.byte();
  if ((wrong & 1) != 0) request.sessionID = Uuid::random();
  if ((wrong & 2) != 0) request.generation = Uuid::random();
  if ((wrong & 4) != 0) request.controlEpoch.reset();
}

TerminalRuntimeLaunch RequestMaker::launch() {
  TerminalRuntimeLaunch launch;
  launch.executable = script_.rarely() ? script_.word() : "/bin/program";
  launch.directory = "/";
  if (script_.flag()) launch.reminderPolicy = reminderPolicy();
  if (script_.rarely()) launch.columns = script_.pick(sides);
  return launch;
}

TerminalReminderPolicy RequestMaker::reminderPolicy() {
  TerminalReminderPolicy policy;
  const std::uint8_t choices = script_.byte();
  policy.bells = (choices & 1) == 0;
  policy.commandFailures = (choices & 2) == 0;
  policy.longCommandCompletion = (choices & 4) == 0;
  policy.processExits = (choices & 8) != 0;
  policy.failureMinimumSeconds = (choices & 16) != 0 ? 0 : 5;
  if (choices >= 0xF8) policy.longCommandSeconds = -1;
  return policy;
}

TerminalRuntimeOutputCursor RequestMaker::outputCursor(const RuntimeSession& session) {
  TerminalRuntimeOutputCursor cursor = session.journal().cursor();
  const std::uint64_t back = static_cast<std::uint64_t>(script_.byte()) * script_.byte() * 32;
  cursor.offset -= std::min(back, cursor.offset);
  if (script_.rarely()) ++cursor.offset;
  return cursor;
}

TerminalEventCursor RequestMaker::eventCursor() {
  TerminalEventCursor cursor = state_.events.cursor();
  cursor.sequence -= std::min<std::uint64_t>(script_.byte(), cursor.sequence);
  if (!script_.rarely()) return cursor;
  cursor.sequence = script_.flag() ? 0 : cursor.sequence + 1000;
  if (script_.flag()) cursor.appEpoch = Uuid::random();
  return cursor;
}

void RequestMaker::fillInput(TerminalRuntimeRequest& request, const RuntimeSession* session) {
  request.source = static_cast<TerminalRuntimeInputSource>(script_.below(3));
  if (session != nullptr) {
    request.inputSequence = session->control().nextInputSequence();
    request.owner = session->control().owner();
  }
  if (script_.rarely()) request.inputSequence = script_.byte();
  if (script_.rarely()) request.expectedEchoEnabled = script_.flag();
  if (script_.rarely() && session != nullptr) request.expectedForegroundPID = session->pid();
  std::string data(request.source == TerminalRuntimeInputSource::protocolReply ? script_.pick(replies)
                                                                               : script_.text());
  if (script_.rarely()) data.append(static_cast<std::size_t>(script_.byte()) * 300, 'x');
  request.data = CarriedBytes(Bytes(data.begin(), data.end()));
}

TerminalAgentReport RequestMaker::agentReport(const RuntimeSession& session) {
  TerminalAgentReport report;
  const TerminalAgentMonitor& monitor = session.agentMonitor();
  if (monitor.snapshot()) {
    report.instanceID = monitor.snapshot()->instanceID;
    report.runID = monitor.snapshot()->runID;
    report.sequence = monitor.snapshot()->reportSequence + 1;
  }
  report.token = monitor.capability().value_or("");
  report.activity = static_cast<TerminalAgentActivity>(script_.below(5));
  const std::uint8_t choices = script_.byte();
  if (report.activity == TerminalAgentActivity::blocked && choices < 0xF0) {
    report.blockReason = static_cast<TerminalAgentBlockReason>(choices % 3);
  }
  if ((choices & 4) != 0) report.result = static_cast<TerminalAgentResult>(choices >> 3 & 3);
  if (script_.rarely()) report.sequence = script_.byte();
  if (script_.rarely()) report.context = {Uuid{}, script_.word(), {}};
  return report;
}

std::optional<Uuid> RequestMaker::commandOf(const RuntimeSession& session) {
  const auto& commands = session.commandLedger().commands();
  if (commands.empty()) return Uuid::random();
  return commands[commands.size() - 1 - script_.below(std::min<std::size_t>(commands.size(), 8))].id;
}

void RequestMaker::fillAttention(TerminalRuntimeRequest& request) {
  const auto& items = state_.attention.items();
  if (items.empty()) return;
  const TerminalAttentionItem& item =
      items[items.size() - 1 - script_.below(std::min<std::size_t>(items.size(), 256))];
  request.attentionID = item.id;
  request.attentionVersion = item.version - (script_.rarely() ? 1 : 0);
}

RuntimeNativeRequest RequestMaker::nativeRequest() {
  RuntimeNativeRequest request;
  request.id = Uuid::random().text();
  const auto action = static_cast<RuntimeNativeAction>(script_.below(8));
  request.action = script_.rarely() ? "unheard_of" : std::string(rawWord(action));
  const RuntimeSession* session = this->session();
  if (session != nullptr) {
    request.tab = session->id().text();
    request.nativeAgentToken = session->nativeAgentContext().token();
    if (action == RuntimeNativeAction::reportAgentState) request.agentReport = agentReport(*session);
  }
  if (script_.rarely()) request.tab = script_.word();
  request.agentKind = script_.rarely() ? TerminalAgentKind::claude : TerminalAgentKind::tesseral;
  request.controlID = script_.pick(controls);
  if (action == RuntimeNativeAction::readSessionEvents) request.eventCursor = eventCursor();
  if (action == RuntimeNativeAction::waitSession) request.waitSpec = waitSpec(session);
  if (action == RuntimeNativeAction::cancelWait) {
    const auto& pending = state_.tools.waits().pending_;
    request.waitID = pending.empty() ? Uuid::random().text() : pending[script_.below(pending.size())].id;
  }
  if (action != RuntimeNativeAction::waitSession && script_.rarely()) request.noResponse = true;
  return request;
}

TerminalWaitSpec RequestMaker::waitSpec(const RuntimeSession* session) {
  TerminalWaitSpec spec;
  spec.condition = static_cast<TerminalWaitCondition>(script_.below(5));
  spec.after = eventCursor();
  spec.timeoutSeconds = script_.pick(timeouts);
  if (session == nullptr) return spec;
  if (!script_.rarely()) spec.tabID = session->id();
  spec.commandID = commandOf(*session);
  spec.revision = session->outputRevision() + script_.flag();
  spec.activity = static_cast<TerminalAgentActivity>(script_.below(5));
  if (const auto& agent = session->agentMonitor().snapshot()) {
    spec.instanceID = agent->instanceID;
    spec.runID = script_.rarely() ? Uuid::random() : agent->runID;
  }
  return spec;
}

}  // namespace velotide
