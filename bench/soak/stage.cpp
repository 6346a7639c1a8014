#include "soak/stage.h"

#include <stdexcept>

#include "end_to_end/waiting.h"
#include "soak/patience.h"

namespace velotide::bench {
namespace {

constexpr std::chrono::seconds restPatience{2 * soakPatience};
constexpr std::chrono::milliseconds moment{200};

}  // namespace

void Stage::add(std::unique_ptr<Actor> actor) {
  actors_.push_back(std::move(actor));
  threads_.emplace_back([this, &added = *actors_.back()] { play(added); });
}

void Stage::play(Actor& actor) {
  try {
    while (mayAct(actor)) actor.act();
  } catch (const std::exception& failure) {
    const std::lock_guard lock(mutex_);
    if (!failure_) failure_ = actor.name() + ": " + failure.what();
    isOver_ = true;
    changed_.notify_all();
  }
}

bool Stage::mayAct(Actor& actor) {
  std::unique_lock lock(mutex_);
  if (!restWanted_ && !isOver_) return true;
  lock.unlock();
  actor.rest();
  lock.lock();
  ++resting_;
  changed_.notify_all();
  changed_.wait(lock, [this] { return !restWanted_ || isOver_; });
  --resting_;
  return !isOver_;
}

void Stage::rest(const std::function<void()>& look) {
  std::unique_lock lock(mutex_);
  restWanted_ = true;
  const auto deadline = attendedNow() + restPatience;
  while (!changed_.wait_for(lock, moment, [this] { return resting_ == threads_.size() || isOver_; })) {
    if (attendedNow() > deadline) throw std::runtime_error("somebody did not come to rest");
  }
  if (!isOver_) {
    lock.unlock();
    look();
    lock.lock();
  }
  restWanted_ = false;
  changed_.notify_all();
}

void Stage::end() {
  {
    const std::lock_guard lock(mutex_);
    isOver_ = true;
    changed_.notify_all();
  }
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
}

std::optional<std::string> Stage::failure() const {
  const std::lock_guard lock(mutex_);
  return failure_;
}

}  // namespace velotide::bench
