#include "service/witness.h"

#include "chunks.h"
#include "service/scripted_terminal.h"

namespace velotide {

namespace {

using Kind = TerminalSessionEventKind;
using Lifecycle = TerminalCommandLifecycleState;

constexpr std::size_t clientReadBytes = 16384;

}  // namespace

ServiceWitness::ServiceWitness(RuntimeServer& server)
    : server_(server),
      observation_(
          server.state_.events.observe([this](const TerminalSessionEvent& event) { observe(event); })) {}

ServiceWitness::~ServiceWitness() { server_.state_.events.removeObserver(observation_); }

void ServiceWitness::observe(const TerminalSessionEvent& event) {
  require(event.cursor.appEpoch == server_.state_.epoch && event.cursor.sequence == ++sequence_);
  switch (event.kind) {
    case Kind::registered:
      require(registered_.insert(event.tabID).second && event.location.has_value());
      break;
    case Kind::closed:
      require(registered_.erase(event.tabID) == 1);
      break;
    case Kind::commandStarted:
    case Kind::commandFinished:
      return observeCommand(event);
    case Kind::attentionCreated:
    case Kind::attentionUpdated:
    case Kind::attentionResolved:
      return observeAttention(event);
    case Kind::outputChanged:
    case Kind::processExited:
      require(registered_.contains(event.tabID));
      break;
    case Kind::agentChanged:
      require(event.agent.has_value());
      break;
    case Kind::locationChanged:
    case Kind::controlChanged:
      require(false);
  }
}

void ServiceWitness::observeCommand(const TerminalSessionEvent& event) {
  const Uuid command = event.commandID.value();
  const bool isRunning = event.commandState.value() == Lifecycle::running;
  if (event.kind == Kind::commandStarted) {
    require(isRunning && startedCommands_.insert(command).second);
  } else {
    require(!isRunning && startedCommands_.contains(command) && finishedCommands_.insert(command).second);
  }
}

void ServiceWitness::observeAttention(const TerminalSessionEvent& event) {
  const TerminalAttentionItem& item = event.attention.value();
  require(item.tabID == event.tabID);
  if (event.kind == Kind::attentionCreated) {
    require(item.version == 1 && item.createdSequence == event.cursor.sequence);
    require(items_.emplace(item.id, Noticed{1, false}).second);
    return;
  }
  Noticed& noticed = items_.at(item.id);
  require(!noticed.isResolved && item.version == noticed.version + 1);
  noticed = {item.version, event.kind == Kind::attentionResolved};
  require(item.resolvedAt.has_value() == noticed.isResolved);
}

void ServiceWitness::checkBounds() {
  namespace Limits = TerminalRuntimeLimits;
  const RuntimeServiceState& state = server_.state_;
  require(server_.clients_.size() <= Limits::maximumClients);
  for (const auto& [fd, client] : server_.clients_) {
    require(client->outgoing.size() <= Limits::maximumClientQueueBytes);
    require(client->incoming.size() <= Limits::maximumFrameBytes + clientReadBytes);
    require(!client->isDisconnected());
  }
  const ReplyCache& replies = server_.dispatch_.replies_;
  require(replies.replies_.size() <= ReplyCache::capacity &&
          replies.replies_.size() == replies.places_.size());
  require(state.disconnects.size() <= RuntimeServiceState::maximumDisconnects);
  require(state.sessions.size() + state.retired.size() <= Limits::maximumSessions);

  require(state.events.sequence() == sequence_ && state.events.pendingDelivery_.empty());
  require(state.events.ring_.size() <= static_cast<std::size_t>(TerminalSessionEventStore::defaultCapacity));
  std::size_t dispensable = 0;
  for (const TerminalAttentionItem& item : state.attention.items()) {
    if (item.resolvedAt || !requiresAnswer(item.kind)) ++dispensable;
    const Noticed& noticed = items_.at(item.id);
    require(item.version == noticed.version && item.resolvedAt.has_value() == noticed.isResolved);
    require(item.resolvedAt || registered_.contains(item.tabID));
  }
  require(state.attention.items().size() <= TerminalAttentionStore::capacity || dispensable == 0);
  require(state.attention.terminalDeduplication_.order_.size() <= TerminalAttentionDeduplication::capacity);

  const TerminalWaitCoordinator& waits = state.tools.waits();
  require(waits.pendingCount() + waits.completionCount() <= TerminalWaitCoordinator::maximumWaiters);
  require(waits.earlyCancellations_.size() <= TerminalWaitCoordinator::maximumMemories);
  require(waits.closedOwners_.size() <= TerminalWaitCoordinator::maximumMemories);

  require(state.sessions.size() == registered_.size());
  for (const auto& [id, session] : state.sessions) {
    require(session->id() == id && registered_.contains(id));
    checkSession(*session);
  }
}

void ServiceWitness::checkSession(const RuntimeSession& session) {
  require(session.pendingInput_.size() <= TerminalRuntimeLimits::maximumFrameBytes);
  const TerminalRuntimeOutputJournal& journal = session.journal();
  require(journal.retainedBytes() ==
          std::min<std::uint64_t>(journal.endOffset(), TerminalRuntimeLimits::maximumResponseBytes));
  const ScriptedProgram* program = ScriptedTerminals::instance().find(session.pid());
  require(program != nullptr && journal.endOffset() <= program->printed().size());
  require(session.running() || !session.control().owner());

  std::uint64_t& revision = revisions_[journal.generation()];
  require(session.revision_ >= std::exchange(revision, session.revision_));
  std::int64_t& output = outputRevisions_[journal.generation()];
  require(session.outputRevision() >= std::exchange(output, session.outputRevision()));

  const TerminalRuntimeCommandLedger& ledger = session.commandLedger();
  require(ledger.commands_.size() <= TerminalRuntimeCommandLedger::maximumCommands);
  require(ledger.evidence_.size() == ledger.commands_.size());
  require(ledger.activeOutput_.size() <= TerminalRuntimeCommandLedger::maximumActiveOutput);
  require(ledger.parser_.retainedByteCount() <= TerminalShellIntegrationParser::maximumRetainedBytes);
  for (const TerminalRuntimeCommandInfo& command : ledger.commands_) {
    require(startedCommands_.contains(command.id));
    require(command.endedAt.has_value() == finishedCommands_.contains(command.id));
    require(command.endedAt.has_value() == (command.state != Lifecycle::running));
    require(command.endedAt || (&command == &ledger.commands_.back() && session.fd() >= 0) ||
            session.running());
  }
}

void ServiceWitness::checkJournals() const {
  for (const auto& [id, session] : server_.state_.sessions) {
    const ScriptedProgram* program = ScriptedTerminals::instance().find(session->pid());
    require(program != nullptr && session->journal().endOffset() == program->printed().size());
  }
}

}  // namespace velotide
