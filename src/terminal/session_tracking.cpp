// What the trackers of a session found in its output, and who is told of it.
#include <algorithm>

#include "terminal/runtime_session.h"

namespace velotide {

namespace {

using Context = TerminalAttentionTerminalContext;

}  // namespace

void RuntimeSession::acceptBells(ByteView chunk, Date now) {
  const std::uint64_t bells = bellParser_.accept(chunk);
  if (bells == 0 || !reminderPolicy_.allowsBell(agentMonitor_.snapshot(), hasSemanticItem())) return;
  Context bell{Context::Kind::bell, journal_.generation(), {}, {}, false};
  bell.occurrences = static_cast<std::int64_t>(bells);
  attention_.record(bell, id_, now);
}

// Whether the agent's integration already has an item of its own.
bool RuntimeSession::hasSemanticItem() const {
  const auto items = attention_.activeView();
  return std::any_of(items.begin(), items.end(), [this](const TerminalAttentionItem* item) {
    return item->tabID == id_ && item->isAgent() && item->source == TerminalAgentSource::integration;
  });
}

// The running command ends with the session: how is not known.
void RuntimeSession::finishCommand() {
  const Date now = clock_.date();
  const std::optional<TerminalRuntimeCommandInfo> command =
      commandLedger_.finish(TerminalCommandLifecycleState::completedUnknownStatus, {}, {}, now);
  if (command) publishCommand(*command, now);
}

void RuntimeSession::publishCommand(const TerminalRuntimeCommandInfo& command, Date now) {
  changed();
  events_.publish(
      id_,
      command.endedAt ? TerminalSessionEventKind::commandFinished : TerminalSessionEventKind::commandStarted,
      now, {.commandID = command.id, .commandState = command.state});
  if (!command.endedAt) return;
  recordCommandReminder(command, now);
  updateAgent([&](TerminalAgentMonitor& monitor) { monitor.endObservedRun(command.id, now); });
}

void RuntimeSession::recordCommandReminder(const TerminalRuntimeCommandInfo& command, Date now) {
  const Seconds duration = std::max(*command.endedAt - command.startedAt, 0.0);
  // Most commands are none to be reminded of whatever their evidence says.
  if (!reminderPolicy_.allowsCommand(command.state, duration, false, true)) return;
  const TerminalRuntimeCommandLedger::Evidence* evidence = commandLedger_.evidence(command.id);
  if (evidence == nullptr) return;
  if (!reminderPolicy_.allowsCommand(command.state, duration, evidence->isLowInformation,
                                     evidence->hasErrorSignal)) {
    return;
  }
  const bool failed = command.state == TerminalCommandLifecycleState::failed;
  attention_.record({Context::Kind::commandFinished, command.id, command.id, command.exitCode, failed}, id_,
                    now);
}

// One reminder for each output generation, without a status when somebody else took it.
void RuntimeSession::recordProcessExit(std::optional<std::int32_t> status) {
  if (!reminderPolicy_.processExits) return;
  attention_.record(
      {Context::Kind::processExited, journal_.generation(), {}, status, status.value_or(0) != 0}, id_,
      clock_.date());
}

void RuntimeSession::announceAgent(const TerminalAgentMonitor::Revision& before) {
  const TerminalAgentMonitor::Revision after = agentMonitor_.revision();
  if (after.snapshot != before.snapshot) changed();
  if (after.evidence != before.evidence) {
    events_.publish(id_, TerminalSessionEventKind::agentChanged, clock_.date(),
                    {.agent = agentMonitor_.snapshot()});
  }
}

}  // namespace velotide
