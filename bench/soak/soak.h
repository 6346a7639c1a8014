#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "end_to_end/service_process.h"
#include "soak/fleet.h"
#include "soak/stage.h"
#include "soak/vitals.h"

namespace velotide::bench {

// One run: a service on a private directory, everybody who uses it, and the looks at what it holds.
class Soak {
 public:
  Soak(std::chrono::seconds length, const std::string& program, const std::string& runtime);
  // Throws when a check failed.
  void run();
  void printSummary() const;

 private:
  void raiseCurtain();
  void watch();
  void lookAtRest();
  void checkGrowth() const;
  void printProgress();
  void shutDown();
  void requireSuccess() const;

  const Clock::time_point begin_ = Clock::now();
  const std::chrono::seconds length_;
  const std::chrono::seconds warmUp_;
  const std::string program_;
  const std::uint64_t seed_;
  ServiceProcess service_;
  Tally tally_;
  Fleet fleet_;
  Vitals vitals_;
  // Last, so that everybody has left before what they use goes.
  Stage stage_;
  std::vector<Vitals::Reading> atRest_;
  Vitals::Reading last_;
  Clock::time_point lastAt_ = begin_;
};

}  // namespace velotide::bench
