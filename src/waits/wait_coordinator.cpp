#include "waits/wait_coordinator.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace velotide {

namespace {

bool isUuid(const std::string& text) { return Uuid::parse(text).has_value(); }

bool isValid(const TerminalWaitSpec& spec) {
  const Seconds timeout = spec.timeoutSeconds;
  if (!std::isfinite(timeout) || timeout < 0 || timeout > TerminalWaitCoordinator::maximumTimeout)
    return false;
  if (!spec.tabID && spec.condition != TerminalWaitCondition::events) return false;
  switch (spec.condition) {
    case TerminalWaitCondition::commandFinished:
      return spec.commandID.has_value();
    case TerminalWaitCondition::agentState:
      return spec.instanceID && spec.runID && spec.activity;
    case TerminalWaitCondition::outputChanged:
      return spec.revision && *spec.revision >= 0;
    case TerminalWaitCondition::attention:
    case TerminalWaitCondition::events:
      return true;
  }
  return false;
}

}  // namespace

TerminalWaitCoordinator::TerminalWaitCoordinator(WaitSources sources)
    : sources_(std::move(sources)),
      observation_(sources_.events.observe([this](const TerminalSessionEvent& event) { observe(event); })) {}

TerminalWaitCoordinator::~TerminalWaitCoordinator() { sources_.events.removeObserver(observation_); }

void TerminalWaitCoordinator::begin(const std::string& id, const std::string& owner,
                                    const TerminalWaitSpec& spec, Date now) {
  if (!isUuid(id) || !isUuid(owner) || !isValid(spec)) throw Failure(TerminalWaitError::invalidSpec);
  checkRoom(id, owner);
  if (takeCancellation(id, owner)) return complete(id, TerminalWaitOutcome::cancelled);
  if (auto result = WaitJudge(sources_, spec.after.sequence).judge(id, spec)) {
    completions_.push_back(std::move(*result));
    return;
  }
  if (spec.timeoutSeconds == 0) return complete(id, TerminalWaitOutcome::timeout);
  pending_.push_back({id, owner, spec, now + spec.timeoutSeconds});
}

void TerminalWaitCoordinator::checkRoom(const std::string& id, const std::string& owner) const {
  const bool isPending = std::ranges::find(pending_, id, &Pending::id) != pending_.end();
  const bool isUncollected =
      std::ranges::find(completions_, id, &TerminalWaitResult::waitID) != completions_.end();
  if (isPending || isUncollected) throw Failure(TerminalWaitError::duplicateID);
  const auto ofOwner = std::ranges::count(pending_, owner, &Pending::owner);
  if (pending_.size() + completions_.size() >= maximumWaiters ||
      static_cast<std::size_t>(ofOwner) >= maximumPerOwner)
    throw Failure(TerminalWaitError::capacityExceeded);
}

bool TerminalWaitCoordinator::takeCancellation(const std::string& id, const std::string& owner) {
  const auto early = earlyCancellations_.find(id);
  const bool isCancelled = early != earlyCancellations_.end() && early->second.owner == owner;
  if (!isCancelled && !closedOwners_.contains(owner)) return false;
  if (early != earlyCancellations_.end()) earlyCancellations_.erase(early);
  return true;
}

void TerminalWaitCoordinator::observe(const TerminalSessionEvent& event) {
  // Every earlier event was judged for each of these waits, when it was published or when the wait began.
  WaitJudge judge(sources_, event.cursor.sequence - 1);
  std::erase_if(pending_, [&](const Pending& wait) {
    if (wait.spec.tabID && *wait.spec.tabID != event.tabID) return false;
    if (event.occurredAt >= wait.deadline) {
      complete(wait.id, TerminalWaitOutcome::timeout);
    } else if (event.kind == TerminalSessionEventKind::closed && wait.spec.tabID) {
      complete(wait.id, TerminalWaitOutcome::targetClosed);
    } else if (auto result = judge.judge(wait.id, wait.spec)) {
      completions_.push_back(std::move(*result));
    } else {
      return false;
    }
    return true;
  });
}

bool TerminalWaitCoordinator::cancel(const std::string& id, const std::string& owner, Date now) {
  if (!isUuid(id) || !isUuid(owner)) return false;
  const auto wait = std::ranges::find(pending_, id, &Pending::id);
  if (wait != pending_.end()) {
    if (wait->owner != owner) return false;
    complete(id, TerminalWaitOutcome::cancelled);
    pending_.erase(wait);
    return true;
  }
  if (earlyCancellations_.size() < maximumMemories) earlyCancellations_[id] = {owner, now};
  return false;
}

void TerminalWaitCoordinator::cancelAll(const std::string& owner, Date now) {
  if (isUuid(owner) && closedOwners_.size() < maximumMemories) closedOwners_[owner] = now;
  completeAll(TerminalWaitOutcome::cancelled, [&](const Pending& wait) { return wait.owner == owner; });
}

void TerminalWaitCoordinator::expire(Date now) {
  std::erase_if(earlyCancellations_, [&](const auto& entry) { return now - entry.second.date > memoryAge; });
  std::erase_if(closedOwners_, [&](const auto& entry) { return now - entry.second > memoryAge; });
  completeAll(TerminalWaitOutcome::timeout, [&](const Pending& wait) { return wait.deadline <= now; });
}

std::vector<TerminalWaitResult> TerminalWaitCoordinator::drainCompletions() {
  return std::exchange(completions_, {});
}

void TerminalWaitCoordinator::shutdown() {
  completeAll(TerminalWaitOutcome::appExited, [](const Pending&) { return true; });
}

void TerminalWaitCoordinator::disableAgentWaits() {
  completeAll(TerminalWaitOutcome::disabled, [](const Pending& wait) {
    return wait.spec.condition == TerminalWaitCondition::agentState ||
           wait.spec.condition == TerminalWaitCondition::attention;
  });
}

void TerminalWaitCoordinator::complete(const std::string& id, TerminalWaitOutcome outcome) {
  completions_.push_back({.waitID = id, .outcome = outcome, .cursor = sources_.events.cursor()});
}

void TerminalWaitCoordinator::completeAll(TerminalWaitOutcome outcome, auto&& chosen) {
  std::erase_if(pending_, [&](const Pending& wait) {
    if (!chosen(wait)) return false;
    complete(wait.id, outcome);
    return true;
  });
}

}  // namespace velotide
