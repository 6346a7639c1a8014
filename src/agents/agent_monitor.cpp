#include "agents/agent_monitor.h"

#include <utility>

#include "agents/screen_rules.h"
#include "base/failure.h"
#include "base/fatal.h"
#include "base/token.h"

namespace velotide {

namespace {

using Activity = TerminalAgentActivity;
using Error = TerminalAgentReportError;
using Reason = TerminalAgentReason;

// Activity, block reason and result must fit together.
bool isConsistent(const TerminalAgentReport& report) {
  if ((report.activity == Activity::blocked) != report.blockReason.has_value()) return false;
  return !report.result || report.activity == Activity::idle || report.activity == Activity::exited;
}

}  // namespace

// The one door to the snapshot.
void TerminalAgentMonitor::become(TerminalAgentSnapshot next) {
  std::optional<TerminalAgentSnapshot> replaced = std::exchange(snapshot_, std::move(next));
  if (snapshot_ == replaced) return;
  increment(revision_.snapshot);
  if (!TerminalAgentSnapshot::sameEvidence(replaced, snapshot_)) increment(revision_.evidence);
}

void TerminalAgentMonitor::decay(Date now) {
  TerminalAgentSnapshot next = *snapshot_;
  next.activity = Activity::unknown;
  next.blockReason.reset();
  next.reason = Reason::expired;
  next.updatedAt = now;
  next.expiresAt.reset();
  become(std::move(next));
}

void TerminalAgentMonitor::observe(TerminalAgentKind kind, const Uuid& runID, TerminalAgentSource source,
                                   std::optional<std::string_view> screen, Date now) {
  if (isClosed_ || retiredObservedRunID_ == runID) return;
  if (capability_) {
    if (source != TerminalAgentSource::shellCommand) return;
    if (!boundCommandID_ && snapshot_ && snapshot_->kind == kind) {
      boundCommandID_ = runID;
      return;
    }
    if (boundCommandID_ == runID) return;
    exit(Reason::commandEnded, now, Closing::no);
  }
  if (!snapshot_ || snapshot_->runID != runID || snapshot_->kind != kind) {
    TerminalAgentSnapshot begun;
    begun.instanceID = Uuid::random();
    begun.runID = runID;
    begun.kind = kind;
    begun.reason = Reason::launched;
    begun.ruleVersion = TerminalAgentScreenRules::version;
    become(std::move(begun));
  }
  refreshObserved(source, screen, now);
}

void TerminalAgentMonitor::refreshObserved(TerminalAgentSource source, std::optional<std::string_view> screen,
                                           Date now) {
  if (snapshot_->activity == Activity::exited) return;
  TerminalAgentScreenDetection seen{Activity::unknown, std::nullopt, Reason::foregroundDetected};
  if (screen) seen = TerminalAgentScreenRules::detect(snapshot_->kind, *screen);
  TerminalAgentSnapshot next = *snapshot_;
  next.activity = seen.activity;
  next.blockReason = seen.blockReason;
  next.reason = seen.reason;
  next.confidence = screen ? TerminalAgentConfidence::low : TerminalAgentConfidence::medium;
  next.source = source;
  next.updatedAt = now;
  next.expiresAt = now + observedLifetime;
  become(std::move(next));
}

void TerminalAgentMonitor::foregroundLost(Date now) {
  if (capability_ || !snapshot_ || snapshot_->activity == Activity::exited) return;
  if (snapshot_->activity == Activity::unknown && snapshot_->reason == Reason::foregroundLost) return;
  TerminalAgentSnapshot next = *snapshot_;
  next.activity = Activity::unknown;
  next.blockReason.reset();
  next.reason = Reason::foregroundLost;
  next.updatedAt = now;
  next.expiresAt.reset();
  become(std::move(next));
}

void TerminalAgentMonitor::exit(TerminalAgentReason reason, Date now, Closing closing) {
  capability_.reset();
  boundCommandID_.reset();
  isClosed_ = closing == Closing::yes;
  if (!snapshot_ || snapshot_->activity == Activity::exited) return;
  TerminalAgentSnapshot next = *snapshot_;
  next.activity = Activity::exited;
  next.blockReason.reset();
  next.lastResult = next.lastResult.value_or(TerminalAgentResult::unknown);
  next.reason = reason;
  next.updatedAt = now;
  next.expiresAt.reset();
  become(std::move(next));
}

void TerminalAgentMonitor::endObservedRun(const Uuid& runID, Date now) {
  if (boundCommandID_ == runID) {
    exit(Reason::commandEnded, now, Closing::no);
  } else if (!capability_ && snapshot_ && snapshot_->runID == runID) {
    retiredObservedRunID_ = runID;
    exit(Reason::commandEnded, now, Closing::no);
  }
}

TerminalAgentGrant TerminalAgentMonitor::bind(TerminalAgentKind kind, const std::optional<Uuid>& commandID,
                                              Date now) {
  if (isClosed_) throw Failure(Error::unavailable);
  TerminalAgentSnapshot bound;
  bound.instanceID = Uuid::random();
  bound.runID = Uuid::random();
  bound.kind = kind;
  bound.updatedAt = now;
  bound.expiresAt = now + reportLifetime;
  bound.ruleVersion = TerminalAgentScreenRules::version;
  TerminalAgentGrant grant{bound.instanceID, bound.runID, makeToken()};
  capability_ = grant.token;
  boundCommandID_ = commandID;
  become(std::move(bound));
  return grant;
}

void TerminalAgentMonitor::check(const TerminalAgentReport& report) const {
  if (isClosed_ || !snapshot_ || snapshot_->activity == Activity::exited ||
      report.instanceID != snapshot_->instanceID || report.runID != snapshot_->runID || !capability_ ||
      report.token != *capability_) {
    throw Failure(Error::invalidCapability);
  }
  if (report.sequence <= snapshot_->reportSequence) throw Failure(Error::staleSequence);
  if (report.context && !report.context->isValid()) throw Failure(Error::invalidState);
  if (!isConsistent(report)) throw Failure(Error::invalidState);
}

void TerminalAgentMonitor::report(const TerminalAgentReport& report, Date now) {
  check(report);
  TerminalAgentSnapshot next = *snapshot_;
  next.activity = report.activity;
  next.blockReason = report.blockReason;
  next.context = report.context;
  if (report.result) {
    next.lastResult = report.result;
  } else if (report.activity == Activity::working) {
    next.lastResult.reset();
  }
  next.source = TerminalAgentSource::integration;
  next.confidence = TerminalAgentConfidence::high;
  next.reason = Reason::reported;
  next.updatedAt = now;
  next.expiresAt.reset();
  if (report.activity != Activity::exited) next.expiresAt = now + reportLifetime;
  next.reportSequence = report.sequence;
  become(std::move(next));
  if (report.activity == Activity::exited) capability_.reset();
}

}  // namespace velotide
