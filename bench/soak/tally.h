#pragma once

#include <atomic>
#include <cstdint>

namespace velotide::bench {

// What a run did, counted by every thread.
struct Tally {
  using Count = std::atomic<std::uint64_t>;

  Count verifiedBytes = 0;
  Count gaps = 0;
  // Subscriptions that were given up by their subscriber, and by the service.
  Count departures = 0;
  Count cutOffs = 0;
  Count restarts = 0;
  Count closes = 0;
  Count echoedBytes = 0;
  // Input, reports and the like that had to be refused, and were.
  Count refusals = 0;
  Count repeats = 0;
  Count leases = 0;
  Count reads = 0;
  Count events = 0;
  Count expiredCursors = 0;
  Count reports = 0;
  Count acknowledgements = 0;
  Count intrusions = 0;
  Count waits = 0;
  Count letters = 0;
  // From the sending of a request to its answer, the longest of all.
  Count slowestMilliseconds = 0;
  // Connections that requests had to be sent again on.
  Count reconnections = 0;
};

}  // namespace velotide::bench
