#include "soak/followers.h"

#include <stdexcept>

#include "end_to_end/json_text.h"

namespace velotide::bench {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds turn{20};
// A subscriber that leaves this long unread is dropped, by its bytes or by the time.
constexpr std::uint64_t longStallMilliseconds = 33'000;

}  // namespace

Follower::Follower(const ServiceProcess& service, const Fleet& fleet, Tally& tally, std::uint64_t seed)
    : service_(service), fleet_(fleet), tally_(tally), random_(seed) {}

int Follower::descriptor(Clock::time_point now) const {
  return client_ && readAt_ <= now ? client_->descriptor() : -1;
}

void Follower::disconnect() {
  client_.reset();
  subscription_.clear();
  readAt_ = {};
}

void Follower::proceed(Clock::time_point now) {
  if (client_ && !subscription_.empty()) {
    if (nextWhim_ <= now) followWhim(now);
    return;
  }
  if (connectAt_ > now) return;
  if (!check_) chooseSession();
  if (!check_) return;
  if (!client_) client_.emplace(service_.connect());
  subscribe();
}

// Of a few sessions the one that writes most.
void Follower::chooseSession() {
  std::optional<Member> chosen;
  for (int drawn = 0; drawn < 3; ++drawn) {
    const std::size_t place = random_.below(Fleet::size);
    const auto member = fleet_.at(place);
    if (!member || member->isLeaving) continue;
    if (chosen && chosen->plan.bytesPerSecond >= member->plan.bytesPerSecond) continue;
    chosen = member;
    place_ = place;
  }
  if (!chosen) return;
  member_ = *chosen;
  check_.emplace(member_.plan.stream, member_.session.generation, 0);
}

void Follower::subscribe() {
  nextWhim_ = attendedNow() + milliseconds(random_.between(50, 2500));
  try {
    subscription_ =
        client_->send("subscribe", member_.session.address() + member_.session.after(check_->position()));
  } catch (const ConnectionEnded&) {
    disconnect();
    connectAt_ = attendedNow() + milliseconds(20);
  }
}

void Follower::followWhim(Clock::time_point now) {
  nextWhim_ = now + milliseconds(random_.between(50, 2500));
  const std::uint64_t whim = random_.below(20);
  if (whim == 0) {
    stall(now + milliseconds(random_.between(2000, longStallMilliseconds)));
  } else if (whim < 6) {
    stall(now + milliseconds(random_.between(10, 2000)));
  } else if (whim < 14) {
    ++tally_.departures;
    disconnect();
    connectAt_ = now + milliseconds(random_.below(3000));
  } else if (whim < 16) {
    subscribe();
  } else {
    check_.reset();
    chooseSession();
    if (check_) return subscribe();
    disconnect();
  }
}

void Follower::stall(Clock::time_point until) {
  readAt_ = until;
  nextWhim_ = until + milliseconds(200);
}

void Follower::receive() {
  if (!client_->lines().fill(client_->descriptor())) {
    // Left too much unread, beyond the limit of clients, or its session was restarted: the next subscription
    // tells, and shows that nothing is lost.
    ++tally_.cutOffs;
    disconnect();
    connectAt_ = attendedNow() + milliseconds(20);
    return;
  }
  const std::string mark = R"("id":)" + jsonText(subscription_);
  while (const auto line = client_->lines().next()) {
    // What an earlier subscription on this connection still sends is of no interest.
    if (line->find(mark) == std::string_view::npos) continue;
    if (line->find(R"("ok":false)") != std::string_view::npos) {
      return endSubscription(requireText(*line, "error"));
    }
    const auto output = carriedOutputIn(*line, scratch_);
    if (!output) throw std::runtime_error("a push without output: " + std::string(line->substr(0, 600)));
    check_->accept(*output, tally_);
  }
}

void Follower::endSubscription(std::string_view refusal) {
  const bool isKnown =
      refusal == "target_closed" || refusal == "unavailable" || refusal == "generation_changed";
  if (!isKnown) throw std::runtime_error("a subscription was refused: " + std::string(refusal));
  fleet_.requireLeaving(place_, member_, refusal);
  subscription_.clear();
  check_.reset();
}

Followers::Followers(const ServiceProcess& service, const Fleet& fleet, Tally& tally, std::uint64_t seed) {
  for (std::size_t index = 0; index < count; ++index) {
    members_.push_back(std::make_unique<Follower>(service, fleet, tally, seed + index));
  }
}

void Followers::act() {
  const auto now = attendedNow();
  entries_.clear();
  for (const auto& member : members_) {
    member->proceed(now);
    entries_.push_back({member->descriptor(now), POLLIN, 0});
  }
  if (::poll(entries_.data(), static_cast<nfds_t>(entries_.size()), static_cast<int>(turn.count())) <= 0)
    return;
  for (std::size_t index = 0; index < entries_.size(); ++index) {
    if (entries_[index].revents != 0) members_[index]->receive();
  }
}

void Followers::rest() {
  for (const auto& member : members_) member->disconnect();
}

}  // namespace velotide::bench
