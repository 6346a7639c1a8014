#include "waits/wait_judge.h"

#include <algorithm>

namespace velotide {

namespace {

TerminalWaitOutcome outcomeOf(TerminalEventReadError error) {
  switch (error) {
    case TerminalEventReadError::appRestarted:
      return TerminalWaitOutcome::appRestarted;
    case TerminalEventReadError::cursorExpired:
      return TerminalWaitOutcome::cursorExpired;
    case TerminalEventReadError::futureCursor:
      return TerminalWaitOutcome::futureCursor;
  }
  return TerminalWaitOutcome::cursorExpired;
}

bool needsMonitoring(TerminalWaitCondition condition) {
  return condition == TerminalWaitCondition::agentState || condition == TerminalWaitCondition::attention;
}

}  // namespace

TerminalWaitResult WaitJudge::end(const std::string& id, TerminalWaitOutcome outcome) const {
  return {.waitID = id, .outcome = outcome, .cursor = sources_.events.cursor()};
}

const std::optional<TerminalWaitTargetSnapshot>& WaitJudge::target(const Uuid& tabID) {
  if (!target_) target_ = sources_.targetSnapshot(tabID);
  return *target_;
}

std::optional<TerminalWaitResult> WaitJudge::judge(const std::string& id, const TerminalWaitSpec& spec) {
  if (spec.after.appEpoch != sources_.events.appEpoch()) return end(id, TerminalWaitOutcome::appRestarted);
  if (spec.after.sequence > sources_.events.sequence()) return end(id, TerminalWaitOutcome::futureCursor);
  if (needsMonitoring(spec.condition) && !sources_.monitoringEnabled())
    return end(id, TerminalWaitOutcome::disabled);
  if (spec.tabID && !target(*spec.tabID)) return end(id, TerminalWaitOutcome::targetClosed);
  switch (spec.condition) {
    case TerminalWaitCondition::commandFinished:
      return judgeCommand(id, spec);
    case TerminalWaitCondition::agentState:
      return judgeAgent(id, spec);
    case TerminalWaitCondition::outputChanged:
      return judgeOutput(id, spec);
    case TerminalWaitCondition::attention:
    case TerminalWaitCondition::events:
      return judgeLog(id, spec);
  }
  return std::nullopt;
}

std::optional<TerminalWaitResult> WaitJudge::judgeCommand(const std::string& id,
                                                          const TerminalWaitSpec& spec) {
  const TerminalWaitTargetSnapshot& session = *target(*spec.tabID);
  const std::optional<TerminalWaitCommandSnapshot> command = session.command(*spec.commandID);
  if (!command) return end(id, TerminalWaitOutcome::targetReplaced);
  if (!command->finished) return std::nullopt;
  TerminalWaitResult result = end(id, TerminalWaitOutcome::matched);
  result.commandID = spec.commandID;
  result.commandState = command->state;
  return result;
}

std::optional<TerminalWaitResult> WaitJudge::judgeAgent(const std::string& id, const TerminalWaitSpec& spec) {
  const TerminalAgentSnapshot* agent = target(*spec.tabID)->agent;
  // Another run can no longer reach the awaited state of this one.
  if (agent == nullptr || agent->instanceID != spec.instanceID || agent->runID != spec.runID)
    return end(id, TerminalWaitOutcome::targetReplaced);
  if (agent->activity != spec.activity) return std::nullopt;
  TerminalWaitResult result = end(id, TerminalWaitOutcome::matched);
  result.agent = *agent;
  return result;
}

std::optional<TerminalWaitResult> WaitJudge::judgeOutput(const std::string& id,
                                                         const TerminalWaitSpec& spec) {
  const std::int64_t revision = target(*spec.tabID)->outputRevision;
  if (revision <= *spec.revision) return std::nullopt;
  TerminalWaitResult result = end(id, TerminalWaitOutcome::matched);
  result.revision = revision;
  return result;
}

std::optional<TerminalWaitResult> WaitJudge::judgeLog(const std::string& id, const TerminalWaitSpec& spec) {
  if (const auto error = sources_.events.readError(spec.after)) return end(id, outcomeOf(*error));
  return spec.condition == TerminalWaitCondition::events ? judgeEvents(id, spec) : judgeAttention(id, spec);
}

std::optional<TerminalWaitResult> WaitJudge::judgeEvents(const std::string& id,
                                                         const TerminalWaitSpec& spec) {
  const TerminalSessionEventStore& events = sources_.events;
  const std::uint64_t most = std::min<std::uint64_t>(readLimit, events.capacity());
  const std::uint64_t last = std::min(spec.after.sequence + most, events.sequence());
  for (std::uint64_t sequence = std::max(spec.after.sequence, judged_) + 1; sequence <= last; ++sequence) {
    const TerminalSessionEvent& event = events.eventAt(sequence);
    if (spec.tabID && event.tabID != *spec.tabID) continue;
    TerminalWaitResult result = end(id, TerminalWaitOutcome::matched);
    result.cursor = event.cursor;
    result.event = event;
    result.attention = event.attention;
    return result;
  }
  return std::nullopt;
}

std::uint64_t WaitJudge::newestItem(const Uuid& tabID) {
  if (!newestItem_) {
    newestItem_ = 0;
    for (const TerminalAttentionItem* item : sources_.attentionItems()) {
      if (item->tabID == tabID) newestItem_ = std::max(*newestItem_, item->createdSequence);
    }
  }
  return *newestItem_;
}

std::optional<TerminalWaitResult> WaitJudge::judgeAttention(const std::string& id,
                                                            const TerminalWaitSpec& spec) {
  if (newestItem(*spec.tabID) <= spec.after.sequence) return std::nullopt;
  const std::span<const TerminalAttentionItem* const> items = sources_.attentionItems();
  const auto found = std::ranges::find_if(items, [&](const TerminalAttentionItem* item) {
    return item->createdSequence > spec.after.sequence && item->tabID == *spec.tabID;
  });
  TerminalWaitResult result = end(id, TerminalWaitOutcome::matched);
  result.cursor.sequence = (*found)->createdSequence;
  result.attention = **found;
  return result;
}

}  // namespace velotide
