#pragma once

#include <map>
#include <string>

#include "end_to_end/waiting.h"
#include "soak/fleet.h"
#include "soak/stage.h"

namespace velotide::bench {

// Keeps the places of the writing sessions filled: restarts what ended by itself, once its output and status
// are found to be what was planned, and closes some and creates others in their place.
class Keeper : public Actor {
 public:
  Keeper(const ServiceProcess& service, Fleet& fleet, std::string program, Tally& tally, std::uint64_t seed);

  void fill();

  std::string name() const override { return "keeper"; }
  void act() override;
  void rest() override { client_.disconnect(); }

 private:
  ChildPlan planFor(std::size_t place);
  void look(std::size_t place, const std::string& list);
  void restart(std::size_t place, const Member& ended);
  void replaceOne();

  Fleet& fleet_;
  std::string program_;
  Tally& tally_;
  Random random_;
  SteadyClient client_;
  // When a session was first seen ended.
  std::map<std::size_t, Clock::time_point> endedSince_;
};

}  // namespace velotide::bench
