#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "base/time.h"
#include "base/uuid.h"
#include "waits/wait_judge.h"
#include "waits/wait_records.h"

namespace velotide {

// The pending waits of all tools. Each wait that begins yields exactly one result: at once, at an event, at
// its deadline or when it is cancelled. Results queue up until they are collected.
//
// Tools speak through files, so a cancel can overtake the wait it means, and a tool that is gone can have
// waits still on their way: both are remembered for a minute. All memories are bounded; what does not fit is
// refused (waits) or forgotten (cancels).
class TerminalWaitCoordinator {
 public:
  // Pending waits and uncollected results together.
  static constexpr std::size_t maximumWaiters = 128;
  static constexpr std::size_t maximumPerOwner = 16;
  static constexpr Seconds maximumTimeout = 60;
  // Of early cancels, and of closed owners.
  static constexpr std::size_t maximumMemories = 128;
  static constexpr Seconds memoryAge = 60;

  // Observes the log, which must outlive the coordinator.
  explicit TerminalWaitCoordinator(WaitSources sources);
  ~TerminalWaitCoordinator();
  TerminalWaitCoordinator(const TerminalWaitCoordinator&) = delete;
  TerminalWaitCoordinator& operator=(const TerminalWaitCoordinator&) = delete;

  // Throws Failure<TerminalWaitError> and has then changed nothing. `id` may be used again once its result
  // has been collected.
  void begin(const std::string& id, const std::string& owner, const TerminalWaitSpec& spec, Date now);
  // Whether a pending wait of this owner was cancelled.
  bool cancel(const std::string& id, const std::string& owner, Date now);
  void cancelAll(const std::string& owner, Date now);
  void expire(Date now);

  // Oldest first. They are gone afterwards.
  std::vector<TerminalWaitResult> drainCompletions();
  std::size_t pendingCount() const { return pending_.size(); }
  std::size_t completionCount() const { return completions_.size(); }

  // The service ends: so does every wait.
  void shutdown();
  // Agents and attention are no longer followed.
  void disableAgentWaits();

 private:
  struct Pending {
    std::string id;
    std::string owner;
    TerminalWaitSpec spec;
    Date deadline;
  };
  struct EarlyCancellation {
    std::string owner;
    Date date;
  };

  void checkRoom(const std::string& id, const std::string& owner) const;
  bool takeCancellation(const std::string& id, const std::string& owner);
  void observe(const TerminalSessionEvent& event);
  void complete(const std::string& id, TerminalWaitOutcome outcome);
  void completeAll(TerminalWaitOutcome outcome, auto&& chosen);

  const WaitSources sources_;
  std::vector<Pending> pending_;
  std::map<std::string, EarlyCancellation> earlyCancellations_;
  std::map<std::string, Date> closedOwners_;
  std::vector<TerminalWaitResult> completions_;
  Uuid observation_;
};

}  // namespace velotide
