#include "soak/keeper.h"

#include <array>
#include <stdexcept>

#include "soak/patience.h"

namespace velotide::bench {
namespace {

constexpr std::uint64_t kibibyte = 1024;

// Kept by place, so that a session that comes for another one loads the service as that did.
constexpr std::array<std::uint64_t, 4> rates{4 * kibibyte, 16 * kibibyte, 64 * kibibyte, 256 * kibibyte};
constexpr std::array<std::size_t, 3> bursts{200, 5000, 300'000};
constexpr std::uint64_t torrent = 2048 * kibibyte;
constexpr std::uint64_t shellRate = 16 * kibibyte;

constexpr bool isTorrent(std::size_t place) { return place % 31 == 30; }
constexpr bool endsByItself(std::size_t place) { return place % 3 == 0; }
constexpr bool isStubborn(std::size_t place) { return place % 16 == 10; }

KnownStream::Dialect dialectOf(std::size_t place) {
  if (isTorrent(place)) return KnownStream::Dialect::text;
  if (place % 5 == 1) return KnownStream::Dialect::shell;
  return place % 5 == 2 ? KnownStream::Dialect::binary : KnownStream::Dialect::text;
}

}  // namespace

Keeper::Keeper(const ServiceProcess& service, Fleet& fleet, std::string program, Tally& tally,
               std::uint64_t seed)
    : fleet_(fleet), program_(std::move(program)), tally_(tally), random_(seed), client_(service, tally) {}

ChildPlan Keeper::planFor(std::size_t place) {
  ChildPlan plan;
  plan.kind = isStubborn(place) ? ChildPlan::Kind::stubborn : ChildPlan::Kind::writing;
  plan.stream = {random_.next(), dialectOf(place)};
  plan.bytesPerSecond = isTorrent(place) ? torrent : rates[place % rates.size()];
  if (plan.stream.dialect == KnownStream::Dialect::shell) plan.bytesPerSecond = shellRate;
  plan.largestBurst = bursts[place % bursts.size()];
  if (endsByItself(place)) {
    plan.length = plan.bytesPerSecond * random_.between(2, 20) + random_.below(100);
    plan.exitStatus = static_cast<int>(random_.below(100));
  }
  return plan;
}

void Keeper::fill() {
  for (std::size_t place = Fleet::echoing; place < Fleet::size; ++place) {
    fleet_.put(place, createMember(client_, program_, planFor(place)));
  }
}

void Keeper::act() {
  const std::string list = client_.require("list");
  for (std::size_t place = Fleet::echoing; place < Fleet::size; ++place) look(place, list);
  if (random_.oneIn(8)) replaceOne();
  pause(std::chrono::milliseconds(200));
}

void Keeper::look(std::size_t place, const std::string& list) {
  const Member member = fleet_.at(place).value();
  const auto state = stateIn(list, member.session.id);
  if (!state) throw std::runtime_error("session " + member.session.id + " is missing from the list");
  if (state->running) return;
  if (member.plan.length == 0) throw std::runtime_error("session " + member.session.id + " ended unasked");
  const auto since = endedSince_.try_emplace(place, attendedNow()).first->second;
  if (state->outputOffset != member.plan.length) {
    if (attendedNow() - since < soakPatience) return;
    throw std::runtime_error("session " + member.session.id + " wrote " + std::to_string(member.plan.length) +
                             " bytes before its end, the service has " + std::to_string(state->outputOffset));
  }
  if (state->exitStatus != static_cast<std::uint64_t>(member.plan.exitStatus)) {
    throw std::runtime_error("a child ended with " + std::to_string(member.plan.exitStatus) +
                             ", the service says " + std::to_string(state->exitStatus.value_or(999)));
  }
  // Some time for those who still read.
  if (attendedNow() - since > std::chrono::milliseconds(500 + random_.below(2000))) restart(place, member);
}

void Keeper::restart(std::size_t place, const Member& ended) {
  endedSince_.erase(place);
  fleet_.announceEnd(place);
  fleet_.put(place, restartMember(client_, program_, ended, planFor(place)));
  ++tally_.restarts;
}

void Keeper::replaceOne() {
  const std::size_t place = random_.between(Fleet::echoing, Fleet::size - 1);
  const Member member = fleet_.at(place).value();
  fleet_.announceEnd(place);
  closeMember(client_, member);
  ++tally_.closes;
  endedSince_.erase(place);
  fleet_.put(place, createMember(client_, program_, planFor(place)));
}

}  // namespace velotide::bench
