#include "terminal/runtime_session.h"

#include <errno.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include "base/fatal.h"
#include "protocol/runtime_failure.h"
#include "terminal/launch.h"
#include "terminal/pseudo_terminal.h"

namespace velotide {

namespace {

// At the child's end, in bytes; later turns read what is left.
constexpr std::size_t endOutput = 65536;

TerminalReminderPolicy checked(const TerminalReminderPolicy& policy) {
  if (!policy.isValid()) throw Failure(RuntimeFailure::invalidRequest);
  return policy;
}

}  // namespace

RuntimeSession::RuntimeSession(const Uuid& id, const TerminalRuntimeLaunch& launch,
                               const Surroundings& surroundings)
    : id_(id),
      events_(surroundings.events),
      attention_(surroundings.attention),
      clock_(surroundings.clock),
      directory_(launch.directory),
      reminderPolicy_(checked(launch.reminderPolicy.value_or(TerminalReminderPolicy{}))),
      journal_(TerminalRuntimeOutputJournal::defaultCapacity, Uuid::random()),
      columns_(launch.columns),
      rows_(launch.rows) {
  validateLaunch(launch);
  const std::string context = nativeAgentContext_.prepare(id_, surroundings.nativeRoot);
  std::map<std::string, std::string> environment = launch.environment;
  environment["VELOTIDE_AGENT_CONTEXT"] = context;
  environment["ARVEN_AGENT_CONTEXT"] = context;  // the name that older integrations read
  const LaunchedChild child = launchChild(launch, environment);
  pid_ = child.pid;
  terminal_ = FileDescriptor(child.master);
}

TerminalRuntimeSessionInfo RuntimeSession::info() const {
  TerminalRuntimeSessionInfo info;
  info.id = id_;
  info.revision = revision_;
  info.pid = pid_;
  info.generation = journal_.generation();
  info.controlEpoch = control_.epoch();
  info.directory = directory_;
  info.running = running();
  info.exitStatus = exitStatus_;
  info.columns = columns_;
  info.rows = rows_;
  info.outputOffset = journal_.endOffset();
  info.controlOwner = control_.owner();
  info.nextInputSequence = control_.nextInputSequence();
  info.agent = agentMonitor_.snapshot();
  info.controlExpiresAt = control_.expiresAt();
  info.outputRevision = outputRevision_;
  const auto& commands = commandLedger_.commands();
  const std::size_t projected =
      std::min(commands.size(), TerminalRuntimeCommandLedger::maximumProjectedCommands);
  info.commands.emplace(commands.end() - static_cast<std::ptrdiff_t>(projected), commands.end());
  info.reminderPolicy = reminderPolicy_;
  return info;
}

std::optional<std::int32_t> RuntimeSession::foregroundProcessGroup() const {
  if (!terminal_.isOpen()) return std::nullopt;
  const pid_t group = ::tcgetpgrp(terminal_.get());
  return group > 0 ? std::optional<std::int32_t>(group) : std::nullopt;
}

std::optional<bool> RuntimeSession::echoes() const {
  const int answer = terminal_.isOpen() ? velotide_pty_echo(terminal_.get()) : -1;
  return answer < 0 ? std::nullopt : std::optional(answer == 1);
}

void RuntimeSession::expire() {
  if (agentMonitor_.snapshot()) {
    updateAgent([this](TerminalAgentMonitor& monitor) { monitor.expire(clock_.date()); });
  }
  if (control_.hasLapsed(clock_.uptime())) releaseControl();
}

void RuntimeSession::noticeExit() {
  if (!running()) return;
  lookAtEndedTerminal();
  std::int32_t status = 0;
  const int polled = velotide_pty_poll_exit(pid_, &status);
  if (polled == 1) childExited(status);
  if (polled < 0 && errno == ECHILD) childVanished();
}

// The child, or one of its own, may have opened its terminal again.
void RuntimeSession::lookAtEndedTerminal() {
  if (!endedTerminal_.isOpen()) return;
  terminal_ = std::move(endedTerminal_);
  drainOutput(endOutput);
}

void RuntimeSession::childExited(std::int32_t status) {
  lookAtEndedTerminal();
  drainOutput(endOutput);
  noteExit(status);
  endAgent(TerminalAgentMonitor::Closing::no);
  events_.publish(id_, TerminalSessionEventKind::processExited, clock_.date(),
                  {.agent = agentMonitor_.snapshot()});
  recordProcessExit(status);
  nativeAgentContext_.invalidate();
}

// Somebody else reaped the child: its end is known, its status is not. No event announces it, and the context
// descriptor stays until the session closes.
void RuntimeSession::childVanished() {
  noteExit(-1);
  recordProcessExit(std::nullopt);
}

void RuntimeSession::noteExit(std::int32_t status) {
  exitStatus_ = status;
  endedTerminal_.close();
  pendingInput_.clear();
  changed();
  if (!terminal_.isOpen()) finishCommand();
  if (control_.owner()) releaseControl();
}

void RuntimeSession::endAgent(TerminalAgentMonitor::Closing closing) {
  updateAgent([&](TerminalAgentMonitor& monitor) {
    monitor.exit(TerminalAgentReason::processExited, clock_.date(), closing);
  });
}

void RuntimeSession::close() {
  refresh();
  finishCommand();
  if (running()) ::kill(pid_, SIGHUP);
  terminal_.close();
  endedTerminal_.close();
  pendingInput_.clear();
  nativeAgentContext_.invalidate();
  endAgent(TerminalAgentMonitor::Closing::yes);
}

void RuntimeSession::configureReminders(const TerminalReminderPolicy& policy) {
  if (checked(policy) == reminderPolicy_) return;
  reminderPolicy_ = policy;
  changed();
}

void RuntimeSession::changed() { increment(revision_); }

}  // namespace velotide
