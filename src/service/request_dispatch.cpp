#include "service/request_dispatch.h"

#include <utility>

#include "base/fatal.h"
#include "protocol/limits.h"
#include "protocol/runtime_failure.h"
#include "service/error_word.h"
#include "service/output_filling.h"

namespace velotide {

namespace {

using Action = TerminalRuntimeAction;

constexpr std::int64_t defaultEventLimit = 100;

// Actions that must not happen twice when a client repeats a request.
bool isMutating(Action action) {
  switch (action) {
    case Action::create:
    case Action::restartExited:
    case Action::bindAgent:
    case Action::reportAgent:
    case Action::input:
    case Action::resize:
    case Action::close:
    case Action::acquireControl:
    case Action::renewControl:
    case Action::releaseControl:
    case Action::acknowledgeAttention:
    case Action::configureReminders:
      return true;
    case Action::hello:
    case Action::list:
    case Action::read:
    case Action::subscribe:
    case Action::inspectInput:
    case Action::listAttention:
    case Action::readEvents:
    case Action::shutdownIfEmpty:
    case Action::diagnostics:
    case Action::getAgentState:
      return false;
  }
  fatal("an action of no kind");
}

}  // namespace

TerminalRuntimeResponse RequestDispatch::perform(const TerminalRuntimeRequest& request) {
  TerminalRuntimeResponse response;
  response.serviceEpoch = state_.epoch;
  response.id = request.id;
  response.action = request.action;
  response.features.emplace(TerminalRuntimeLimits::features.begin(), TerminalRuntimeLimits::features.end());
  if (request.protocolVersion != TerminalRuntimeLimits::protocolVersion) {
    response.ok = false;
    response.error = "incompatible_protocol";
    return response;
  }
  if (request.action == Action::hello) return response;

  try {
    require(state_.socket.authorizes(request.capability), RuntimeFailure::invalidCapability);
    if (const TerminalRuntimeResponse* reply = replies_.find(request.id)) {
      require(reply->action == request.action, RuntimeFailure::invalidRequest);
      return *reply;
    }
    performAction(request, response);
    if (isMutating(request.action)) replies_.store(response);
  } catch (...) {
    response.ok = false;
    response.error = errorWordOfCurrentFailure();
  }
  response.eventHead = state_.events.cursor();
  return response;
}

void RequestDispatch::performAction(const TerminalRuntimeRequest& request,
                                    TerminalRuntimeResponse& response) {
  switch (request.action) {
    case Action::hello:
      return;
    case Action::create:
      return create(request, response);
    case Action::list:
      return list(response);
    case Action::listAttention:
      response.attention = request.sessionID ? state_.attention.activeItems(*request.sessionID)
                                             : state_.attention.activeItems();
      return;
    case Action::acknowledgeAttention:
      return acknowledgeAttention(request, response);
    case Action::readEvents:
      return readEvents(request, response);
    case Action::shutdownIfEmpty:
      return shutdownIfEmpty();
    case Action::diagnostics:
      return diagnostics(response);
    case Action::read:
    case Action::subscribe:
    case Action::inspectInput:
    case Action::input:
    case Action::resize:
    case Action::close:
    case Action::restartExited:
    case Action::acquireControl:
    case Action::renewControl:
    case Action::releaseControl:
    case Action::bindAgent:
    case Action::reportAgent:
    case Action::getAgentState:
    case Action::configureReminders:
      return performOnSession(request, response);
  }
}

void RequestDispatch::create(const TerminalRuntimeRequest& request, TerminalRuntimeResponse& response) {
  require(!state_.shutdownRequested, RuntimeFailure::unavailable);
  const std::size_t held = state_.sessions.size() + state_.retired.size();
  // A missing launch deliberately shares the word of the limit.
  require(held < TerminalRuntimeLimits::maximumSessions && request.launch, RuntimeFailure::resourceLimit);
  const Uuid id = request.sessionID.value_or(Uuid::random());
  require(state_.find(id) == nullptr, RuntimeFailure::invalidRequest);

  auto session = std::make_unique<RuntimeSession>(id, *request.launch, state_.surroundings());
  response.session = session->info();
  state_.sessions.emplace(id, std::move(session));
  state_.events.publish(id, TerminalSessionEventKind::registered, state_.clock.date(),
                        {.location = TerminalSessionLocation::mainWindow});
}

void RequestDispatch::list(TerminalRuntimeResponse& response) const {
  // The map's order is the order of the identifiers' texts.
  response.sessions.emplace();
  for (const auto& [id, session] : state_.sessions) response.sessions->push_back(session->info());
}

void RequestDispatch::acknowledgeAttention(const TerminalRuntimeRequest& request,
                                           TerminalRuntimeResponse& response) {
  require(request.attentionID && request.attentionVersion, RuntimeFailure::invalidRequest);
  state_.attention.markRead(*request.attentionID, *request.attentionVersion, state_.clock.date());
  response.attention = state_.attention.activeItems();
}

void RequestDispatch::readEvents(const TerminalRuntimeRequest& request,
                                 TerminalRuntimeResponse& response) const {
  response.events = state_.events.read(request.eventAfter.value_or(state_.events.cursor()),
                                       request.eventLimit.value_or(defaultEventLimit));
}

void RequestDispatch::shutdownIfEmpty() {
  // The word tells the caller that sessions still hold the service.
  require(state_.sessions.empty(), RuntimeFailure::controlOwned);
  state_.tools.shutdown();
  state_.shutdownRequested = true;
}

void RequestDispatch::diagnostics(TerminalRuntimeResponse& response) const {
  response.disconnects.emplace(state_.disconnects.begin(), state_.disconnects.end());
  response.pendingWaits = static_cast<std::int64_t>(state_.tools.waits().pendingCount());
}

void RequestDispatch::performOnSession(const TerminalRuntimeRequest& request,
                                       TerminalRuntimeResponse& response) {
  RuntimeSession* session = request.sessionID ? state_.find(*request.sessionID) : nullptr;
  require(session != nullptr, RuntimeFailure::unavailable);
  session->refresh();
  session->validate(request, RuntimeSession::Need::generation);

  // These two end the session, so they describe what is left themselves.
  if (request.action == Action::close) return close(request, *session, response);
  if (request.action == Action::restartExited) return restartExited(request, *session, response);

  performSessionAction(request, *session, response);
  response.session = session->info();
  if (const auto group = session->foregroundProcessGroup()) response.foregroundPID = group;
}

void RequestDispatch::performSessionAction(const TerminalRuntimeRequest& request, RuntimeSession& session,
                                           TerminalRuntimeResponse& response) {
  switch (request.action) {
    case Action::read:
    case Action::subscribe:
      return fillOutput(response, state_, session, request.after);
    case Action::inspectInput:
      return inspectInput(session, response);
    case Action::input:
      response.echoEnabled = session.input(request);
      return;
    case Action::resize:
      return session.resize(request);
    case Action::acquireControl:
    case Action::renewControl:
    case Action::releaseControl:
      return session.updateControl(request);
    case Action::bindAgent:
      bindAgent(request, session, response);
      break;
    case Action::reportAgent:
      reportAgent(request, session);
      break;
    case Action::getAgentState:
      break;
    case Action::configureReminders:
      require(request.reminderPolicy.has_value(), RuntimeFailure::invalidRequest);
      return session.configureReminders(*request.reminderPolicy);
    default:
      throw Failure(RuntimeFailure::invalidRequest);
  }
  // The agent's own actions also tell what the person was asked.
  response.attention = state_.attention.activeItems(session.id());
}

void RequestDispatch::bindAgent(const TerminalRuntimeRequest& request, RuntimeSession& session,
                                TerminalRuntimeResponse& response) const {
  if (!session.running() || !request.agentKind) throw Failure(TerminalAgentReportError::unavailable);
  session.updateAgent([&](TerminalAgentMonitor& monitor) {
    response.agentGrant = monitor.bind(*request.agentKind, request.commandID, state_.clock.date());
  });
}

void RequestDispatch::reportAgent(const TerminalRuntimeRequest& request, RuntimeSession& session) const {
  if (!session.running()) throw Failure(TerminalAgentReportError::unavailable);
  if (!request.agentReport) throw Failure(TerminalAgentReportError::invalidState);
  session.updateAgent(
      [&](TerminalAgentMonitor& monitor) { monitor.report(*request.agentReport, state_.clock.date()); });
}

void RequestDispatch::inspectInput(const RuntimeSession& session, TerminalRuntimeResponse& response) const {
  const std::optional<bool> echo = session.echoes();
  const std::optional<std::int32_t> group = session.foregroundProcessGroup();
  require(session.running() && echo && group, RuntimeFailure::unavailable);
  response.echoEnabled = echo;
  response.foregroundPID = group;
}

void RequestDispatch::close(const TerminalRuntimeRequest& request, RuntimeSession& session,
                            TerminalRuntimeResponse& response) {
  session.validate(request, RuntimeSession::Need::control);
  session.close();
  if (session.running()) {
    state_.retired.push_back({session.pid(), state_.clock.uptime() + RetiredChild::patience});
  }
  response.session = session.info();
  const Uuid id = session.id();
  state_.sessions.erase(id);
  state_.events.publish(id, TerminalSessionEventKind::closed, state_.clock.date());
}

void RequestDispatch::restartExited(const TerminalRuntimeRequest& request, RuntimeSession& session,
                                    TerminalRuntimeResponse& response) {
  session.validate(request, RuntimeSession::Need::control);
  const bool allowed =
      !state_.shutdownRequested && !session.running() && !session.control().owner() && request.launch;
  require(allowed, RuntimeFailure::invalidRequest);
  const Uuid id = session.id();
  auto successor = std::make_unique<RuntimeSession>(id, *request.launch, state_.surroundings());
  session.close();
  state_.events.publish(id, TerminalSessionEventKind::closed, state_.clock.date());
  std::unique_ptr<RuntimeSession>& place = state_.sessions.at(id);
  place = std::move(successor);
  state_.events.publish(id, TerminalSessionEventKind::registered, state_.clock.date(),
                        {.location = TerminalSessionLocation::mainWindow});
  response.session = place->info();
}

}  // namespace velotide
