#include "commands/command_ledger.h"

#include <algorithm>
#include <string_view>
#include <variant>

#include "commands/output_insights.h"
#include "commands/reminder_policy.h"

namespace velotide {

using State = TerminalCommandLifecycleState;

std::vector<TerminalRuntimeCommandInfo> TerminalRuntimeCommandLedger::accept(ByteView chunk,
                                                                             std::uint64_t offset,
                                                                             const Uuid& generation,
                                                                             Date now) {
  Records changed;
  std::size_t position = 0;
  // A mark may begin before the chunk.
  const auto within = [&](std::uint64_t absolute) {
    const std::uint64_t relative = absolute > offset ? absolute - offset : 0;
    return std::max(position, static_cast<std::size_t>(std::min<std::uint64_t>(relative, chunk.size())));
  };
  const std::vector<TerminalLocatedShellEvent> marks = parser_.acceptLocated(chunk, offset);
  if (!marks.empty()) changed.reserve(marks.size());
  for (const TerminalLocatedShellEvent& mark : marks) {
    appendOutput(chunk.subspan(position, within(mark.startOffset) - position));
    position = within(mark.endOffset);
    apply(mark, generation, now, changed);
    // A mark ends any control sequence that the output before it left open.
    activeOutputParser_ = {};
  }
  appendOutput(chunk.subspan(position));
  return changed;
}

void TerminalRuntimeCommandLedger::apply(const TerminalLocatedShellEvent& mark, const Uuid& generation,
                                         Date now, Records& changed) {
  if (const auto* finished = std::get_if<TerminalShellCommandFinished>(&mark.event)) {
    const State state = finished->exitCode == 0 ? State::succeeded : State::failed;
    if (auto record = finish(state, finished->exitCode, mark.startOffset, now)) changed.push_back(*record);
  }
  const auto* started = std::get_if<TerminalShellCommandStarted>(&mark.event);
  if (started == nullptr || started->text.empty()) return;
  if (auto record = finish(State::superseded, std::nullopt, mark.startOffset, now))
    changed.push_back(*record);
  changed.push_back(start(mark, started->text, generation, now));
}

const TerminalRuntimeCommandInfo& TerminalRuntimeCommandLedger::start(const TerminalLocatedShellEvent& mark,
                                                                      std::string_view text,
                                                                      const Uuid& generation, Date now) {
  if (commands_.size() == maximumCommands) {
    commands_.pop_front();
    evidence_.pop_front();
  }
  TerminalRuntimeCommandInfo& command = commands_.emplace_back();
  command.id = TerminalRuntimeCommandInfo::identity(generation, mark.startOffset);
  command.generation = generation;
  command.markerOffset = mark.startOffset;
  command.startedAt = now;
  Evidence& evidence = evidence_.emplace_back();
  evidence.outputStart = mark.endOffset;
  evidence.isLowInformation = TerminalReminderPolicy::isLowInformationCommand(text);
  return command;
}

std::optional<TerminalRuntimeCommandInfo> TerminalRuntimeCommandLedger::finish(
    State state, std::optional<std::int32_t> exitCode, std::optional<std::uint64_t> outputEnd, Date now) {
  if (!isRunning()) return std::nullopt;
  TerminalRuntimeCommandInfo& command = commands_.back();
  command.endedAt = now;
  command.exitCode = exitCode;
  command.state = state;
  Evidence& evidence = evidence_.back();
  evidence.outputEnd = outputEnd;
  evidence.hasErrorSignal = TerminalOutputInsightAnalyzer::hasErrorSignal(activeOutput_.text());
  releaseOutput();
  return command;
}

void TerminalRuntimeCommandLedger::appendOutput(ByteView bytes) {
  if (!isRunning()) return;
  while (!bytes.empty()) {
    const ByteView piece = bytes.first(std::min(bytes.size(), maximumActiveOutput));
    activeOutputParser_.consume(piece, activeOutput_);
    const std::size_t held = activeOutput_.size();
    if (held > maximumActiveOutput) activeOutput_.consume(held - maximumActiveOutput);
    bytes = bytes.subspan(piece.size());
  }
}

void TerminalRuntimeCommandLedger::releaseOutput() {
  // A session that had one long command does not hold its window for ever; short ones reuse the memory.
  constexpr std::size_t worthKeeping = 4096;
  if (activeOutput_.size() > worthKeeping) {
    activeOutput_ = {};
  } else {
    activeOutput_.clear();
  }
}

std::optional<std::size_t> TerminalRuntimeCommandLedger::indexOf(const Uuid& commandID) const {
  // Asked for the latest almost always.
  for (std::size_t index = commands_.size(); index-- > 0;) {
    if (commands_[index].id == commandID) return index;
  }
  return std::nullopt;
}

const TerminalRuntimeCommandLedger::Evidence* TerminalRuntimeCommandLedger::evidence(
    const Uuid& commandID) const {
  const std::optional<std::size_t> index = indexOf(commandID);
  return index ? &evidence_[*index] : nullptr;
}

const TerminalRuntimeCommandInfo* TerminalRuntimeCommandLedger::find(const Uuid& commandID) const {
  const std::optional<std::size_t> index = indexOf(commandID);
  return index ? &commands_[*index] : nullptr;
}

}  // namespace velotide
