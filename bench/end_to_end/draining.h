#pragma once

#include "end_to_end/measures.h"
#include "end_to_end/processes.h"
#include "end_to_end/service_process.h"

namespace velotide::bench {

// What it took to take a printing child's output.
struct Cost {
  double mebibytesPerSecond = 0;
  double processorSecondsPerGibibyte = 0;
};

struct CostPairs {
  Pairs throughput;
  Pairs processor;

  void add(const Cost& service, const Cost& floor);
};

Cost costOf(std::uint64_t bytes, double seconds, double processorSeconds);

// On a bare terminal.
TerminalProcess startPrinting(const Options& options, std::uint64_t bytes);

// A bare terminal's output, read and dropped.
Cost drainFloor(const Options& options, std::uint64_t bytes);
// The service's, without a subscriber.
Cost drainService(const Options& options, const ServiceProcess& service, std::uint64_t bytes);

}  // namespace velotide::bench
