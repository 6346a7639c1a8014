#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "end_to_end/waiting.h"
#include "soak/fleet.h"
#include "soak/stage.h"
#include "soak/stream_check.h"

namespace velotide::bench {

// Subscribes to a session and checks what arrives, until a whim lets it stop reading for a while, leave in
// the middle and come back with its cursor, subscribe anew, or turn to another session.
class Follower {
 public:
  Follower(const ServiceProcess& service, const Fleet& fleet, Tally& tally, std::uint64_t seed);

  // Negative while it does not want to read.
  int descriptor(Clock::time_point now) const;
  void receive();
  // Does what is due.
  void proceed(Clock::time_point now);
  // Keeps the cursor.
  void disconnect();

 private:
  void subscribe();
  void chooseSession();
  void followWhim(Clock::time_point now);
  void stall(Clock::time_point until);
  void endSubscription(std::string_view refusal);

  const ServiceProcess& service_;
  const Fleet& fleet_;
  Tally& tally_;
  Random random_;
  std::optional<WireClient> client_;
  std::size_t place_ = 0;
  Member member_;
  // Absent while no session is chosen.
  std::optional<StreamCheck> check_;
  // ID of the subscription; empty while there is none.
  std::string subscription_;
  Clock::time_point connectAt_;
  Clock::time_point readAt_;
  Clock::time_point nextWhim_;
  std::string scratch_;
};

class Followers : public Actor {
 public:
  Followers(const ServiceProcess& service, const Fleet& fleet, Tally& tally, std::uint64_t seed);

  std::string name() const override { return "followers"; }
  void act() override;
  void rest() override;

 private:
  static constexpr std::size_t count = 20;

  std::vector<std::unique_ptr<Follower>> members_;
  std::vector<pollfd> entries_;
};

}  // namespace velotide::bench
