#pragma once

#include <string>

#include "end_to_end/service_process.h"
#include "end_to_end/waiting.h"
#include "soak/fleet.h"
#include "soak/stage.h"
#include "soak/stream_check.h"

// Those who use other people's sessions.
namespace velotide::bench {

// Reads output from any offset, and now and then is silent for longer than the service bears.
class Reader : public Actor {
 public:
  Reader(const ServiceProcess& service, const Fleet& fleet, Tally& tally, std::uint64_t seed);
  std::string name() const override { return "reader"; }
  void act() override;
  void rest() override { client_.disconnect(); }

 private:
  void readOn(std::size_t place, const Member& member, std::uint64_t from);
  void readInVain(const Member& member);

  const Fleet& fleet_;
  Tally& tally_;
  Random random_;
  SteadyClient client_;
  Clock::time_point silentUntil_;
  std::string scratch_;
};

// Reads the log of events from its cursor on and finds it without holes; acknowledges what wants attention.
class EventReader : public Actor {
 public:
  EventReader(const ServiceProcess& service, Tally& tally, std::uint64_t seed);
  std::string name() const override { return "event reader"; }
  void act() override;
  void rest() override { client_.disconnect(); }

 private:
  void begin();
  void readEvents();
  void acknowledge();

  Tally& tally_;
  Random random_;
  SteadyClient client_;
  std::string epoch_;
  std::uint64_t sequence_ = 0;
};

// Binds agents to sessions and reports what they do, in order and out of it.
class AgentUser : public Actor {
 public:
  AgentUser(const ServiceProcess& service, const Fleet& fleet, Tally& tally, std::uint64_t seed);
  std::string name() const override { return "agent user"; }
  void act() override;
  void rest() override { client_.disconnect(); }

 private:
  bool succeeds(std::string_view action, const std::string& fields);
  bool report(const std::string& grant, std::uint64_t sequence, std::string_view activity);

  const Fleet& fleet_;
  Tally& tally_;
  Random random_;
  SteadyClient client_;
  std::size_t place_ = 0;
  Member member_;
  std::string record_;
};

// Connects and breaks every rule of the protocol.
class Intruder : public Actor {
 public:
  Intruder(const ServiceProcess& service, Tally& tally, std::uint64_t seed);
  std::string name() const override { return "intruder"; }
  void act() override;
  void rest() override {}

 private:
  void sendGarbage();
  void sendTooMuch();
  void leaveHalfARequest();
  void neverRead();
  void crowd();

  const ServiceProcess& service_;
  Tally& tally_;
  Random random_;
};

}  // namespace velotide::bench
