#include "client/command_history.h"

#include <algorithm>

#include "commands/command_ledger.h"

namespace velotide::client {

CommandHistory::Records CommandHistory::take(
    const Uuid& generation, const std::vector<TerminalRuntimeCommandInfo>& latest,
    const std::function<Records(std::uint64_t from, std::uint64_t to)>& older) {
  Records changed;
  if (generation != generation_) newest_.reset();
  // What was over before following began is the past; a session that was restarted has none.
  const bool isFirst = !hasBegun_;
  generation_ = generation;
  hasBegun_ = true;
  if (latest.empty()) return changed;
  const bool isContinued =
      newest_ ? std::any_of(latest.begin(), latest.end(),
                            [&](const auto& command) { return command.id == newest_->id; })
              : isFirst || latest.size() < TerminalRuntimeCommandLedger::maximumProjectedCommands;
  if (!isContinued) {
    for (const KnownCommand& command :
         older(newest_ ? newest_->markerOffset : 0, latest.front().markerOffset))
      add(command, changed);
  }
  for (const TerminalRuntimeCommandInfo& command : latest) add(KnownCommand::of(command), changed);
  return changed;
}

// Older records are final; only the newest may still change.
void CommandHistory::add(const KnownCommand& command, Records& changed) {
  if (newest_ && command.markerOffset < newest_->markerOffset) return;
  if (newest_ && command.id == newest_->id && command.state == newest_->state) return;
  const std::optional<Date> startedAt =
      newest_ && command.id == newest_->id ? newest_->startedAt : std::nullopt;
  newest_ = command;
  if (!newest_->startedAt) newest_->startedAt = startedAt;
  changed.push_back(*newest_);
}

}  // namespace velotide::client
