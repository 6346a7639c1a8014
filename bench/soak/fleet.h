#pragma once

#include <array>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "end_to_end/wire_client.h"
#include "soak/child.h"
#include "soak/random.h"
#include "soak/steady_client.h"

namespace velotide::bench {

// One session and what its child does.
struct Member {
  HostedSession session;
  ChildPlan plan;
  // Its keeper is about to close or restart it.
  bool isLeaving = false;
};

// All sessions, by place. The keeper of a place announces there what it is about to do, so that everybody
// else knows whether a refusal was due. Any thread may ask.
class Fleet {
 public:
  static constexpr std::size_t size = 64;
  // The first places belong to the writers, the others to the keeper.
  static constexpr std::size_t echoing = 9;

  std::optional<Member> at(std::size_t place) const;
  void put(std::size_t place, Member member);
  // Before its keeper ends a session.
  void announceEnd(std::size_t place);
  // Throws unless the session that was `member` is gone from its place or about to go.
  void requireLeaving(std::size_t place, const Member& member, std::string_view refusal) const;

 private:
  mutable std::mutex mutex_;
  std::array<std::optional<Member>, size> members_;
};

// Creates a session of the plan; a session that was just closed counts until its child is gone.
Member createMember(SteadyClient& client, const std::string& program, const ChildPlan& plan);
// The same session with another child; the one before has ended.
Member restartMember(SteadyClient& client, const std::string& program, const Member& before,
                     const ChildPlan& plan);
void closeMember(SteadyClient& client, const Member& member);

// What a record says of one session.
struct SessionState {
  bool running = false;
  std::uint64_t outputOffset = 0;
  std::optional<std::uint64_t> exitStatus;
  std::string controlEpoch;
};
// Of `record`, the first session with that ID; absent where there is none.
std::optional<SessionState> stateIn(std::string_view record, const std::string& id);

}  // namespace velotide::bench
