#include "client/session_agent.h"

#include <utility>

#include "client/mailbox_client.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

// A session that ended or is gone hosts nobody: the caller then stands outside, as where none ever was.
[[noreturn]] void refuse(std::string_view word) {
  const bool isOutside = word == "unavailable" || word == "generation_changed";
  throw Trouble(explain(word), isOutside ? ExitStatus::notRunning : ExitStatus::failure);
}

// The shell command that runs in the session, which carries the agent: its end is the agent's.
std::optional<Uuid> runningCommand(const TerminalRuntimeSessionInfo& session) {
  if (!session.commands || session.commands->empty()) return std::nullopt;
  const TerminalRuntimeCommandInfo& last = session.commands->back();
  return last.endedAt ? std::nullopt : std::optional(last.id);
}

}  // namespace

SessionAgent::SessionAgent(const AgentContext& context)
    : context_(context), file_(context, patience), record_(file_.load()) {}

Service& SessionAgent::service() {
  if (!service_) service_.emplace(ServiceRoot::find(context_.serviceRoot), notices_, patience);
  return *service_;
}

RuntimeNativeResponse SessionAgent::askMailbox(RuntimeNativeAction action,
                                               RuntimeNativeRequest request) const {
  request.action = rawWord(action);
  request.tab = context_.tabID.text();
  const ServiceRoot root = ServiceRoot::find(context_.serviceRoot);
  return MailboxClient(root).call(std::move(request), patience).record;
}

bool SessionAgent::isFollowed() {
  if (!record_ || !record_->grant) return false;
  const std::optional<TerminalRuntimeSessionInfo> found = session();
  return found && found->agent && found->agent->instanceID == record_->grant->instanceID &&
         found->agent->activity != TerminalAgentActivity::exited;
}

bool SessionAgent::mayReturn() {
  const std::optional<TerminalRuntimeSessionInfo> found = session();
  return found && found->agent && found->agent->activity == TerminalAgentActivity::exited &&
         runningCommand(*found);
}

void SessionAgent::remember(const AgentEvent& event) {
  if (event.turn || event.meaning == AgentEvent::Meaning::turnBegins) record_->turn = event.turn;
  record_->agentSession = event.agentSession;
}

void SessionAgent::bind(TerminalAgentKind kind, const std::optional<std::string>& agentSession) {
  record_.emplace();
  record_->kind = kind;
  record_->agentSession = agentSession;
  if (kind == TerminalAgentKind::tesseral)
    bindThroughMailbox(kind);
  else
    bindThroughSocket(kind);
  record_->reportedAt = SystemClock().date();
  save();
}

void SessionAgent::bindThroughSocket(TerminalAgentKind kind) {
  const std::optional<TerminalRuntimeSessionInfo> found = session();
  if (!found) refuse("unavailable");
  TerminalRuntimeRequest request = Service::about(*found, TerminalRuntimeAction::bindAgent);
  request.agentKind = kind;
  request.commandID = runningCommand(*found);
  const TerminalRuntimeResponse response = service().ask(request);
  if (!response.ok || !response.agentGrant) refuse(response.error.value_or("runtime_error"));
  record_->grant = response.agentGrant;
  record_->generation = found->generation;
}

void SessionAgent::bindThroughMailbox(TerminalAgentKind kind) {
  RuntimeNativeRequest request;
  request.agentKind = kind;
  request.nativeAgentToken = context_.token;
  const RuntimeNativeResponse response = askMailbox(RuntimeNativeAction::bindNativeAgent, request);
  if (!response.ok || !response.agentGrant) refuse(response.error.value_or("runtime_error"));
  record_->grant = response.agentGrant;
}

bool SessionAgent::report(const AgentState& state) {
  TerminalAgentReport report{record_->grant->instanceID,
                             record_->grant->runID,
                             record_->grant->token,
                             record_->sequence + 1,
                             state.activity,
                             state.blockReason,
                             state.result,
                             state.context};
  record_->sequence = report.sequence;
  record_->reportedAt = SystemClock().date();
  save();
  const std::optional<std::string> refusal = record_->kind == TerminalAgentKind::tesseral
                                                 ? reportThroughMailbox(report)
                                                 : reportThroughSocket(report);
  record_->isLost = refusal == "invalidCapability";
  if (refusal && !record_->isLost) refuse(*refusal);
  if (!refusal) record_->isAtRest = state.activity == TerminalAgentActivity::idle;
  if (!refusal && state.activity == TerminalAgentActivity::exited) record_->grant.reset();
  save();
  return !refusal;
}

std::optional<std::string> SessionAgent::reportThroughSocket(const TerminalAgentReport& report) {
  TerminalRuntimeRequest request = TerminalRuntimeRequest::make(TerminalRuntimeAction::reportAgent);
  request.sessionID = context_.tabID;
  request.generation = record_->generation;
  request.agentReport = report;
  return service().ask(request).error;
}

std::optional<std::string> SessionAgent::reportThroughMailbox(const TerminalAgentReport& report) {
  RuntimeNativeRequest request;
  request.agentReport = report;
  return askMailbox(RuntimeNativeAction::reportAgentState, request).error;
}

}  // namespace velotide::client
