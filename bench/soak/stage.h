#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace velotide::bench {

// One of those who use the service at the same time, each on a thread of its own.
class Actor {
 public:
  virtual ~Actor() = default;
  // Used when it fails.
  virtual std::string name() const = 0;
  // One short piece of work, of at most a few seconds. Throws when the service broke a rule.
  virtual void act() = 0;
  // Gives back what it holds of the service: its connections, waits, leases.
  virtual void rest() = 0;
};

// Lets actors act until it goes, and lets all of them rest at once in between.
class Stage {
 public:
  Stage() = default;
  Stage(const Stage&) = delete;
  ~Stage() { end(); }

  void add(std::unique_ptr<Actor> actor);
  // Runs `look` while everybody rests; throws when somebody does not come to rest.
  void rest(const std::function<void()>& look);
  // Waits for every actor to leave.
  void end();
  // What the first actor that failed has to say.
  std::optional<std::string> failure() const;

 private:
  void play(Actor& actor);
  bool mayAct(Actor& actor);

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::unique_ptr<Actor>> actors_;
  std::vector<std::thread> threads_;
  std::size_t resting_ = 0;
  bool restWanted_ = false;
  bool isOver_ = false;
  std::optional<std::string> failure_;
};

}  // namespace velotide::bench
