#pragma once

#include <cstdint>
#include <optional>

#include "end_to_end/service_process.h"
#include "end_to_end/waiting.h"
#include "soak/steady_client.h"

namespace velotide::bench {

// What a service holds of the machine.
class Vitals {
 public:
  // Of a service without sessions that only this client is connected to.
  Vitals(const ServiceProcess& service, Tally& tally);

  struct Reading {
    std::uint64_t residentBytes = 0;
    // Of these, the output that the sessions' journals hold.
    std::uint64_t journalBytes = 0;
    std::size_t descriptors = 0;
    // Of these, the terminals of sessions whose child runs.
    std::size_t sessions = 0;
    double processorSeconds = 0;

    // What must not grow.
    std::uint64_t otherBytes() const { return residentBytes - journalBytes; }
  };
  Reading read();

  // While nobody else is connected: the reading, after a check that the service holds a terminal for each
  // child and nothing else more than at the start. Throws when that does not become so.
  Reading readAtRest();
  // Throws when the service ended a connection for a reason that nobody gave.
  void checkDisconnects();

 private:
  const ServiceProcess& service_;
  SteadyClient client_;
  std::size_t ownDescriptors_;
};

}  // namespace velotide::bench
