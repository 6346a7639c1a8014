#pragma once

#include <functional>

#include "end_to_end/measures.h"
#include "end_to_end/service_process.h"
#include "end_to_end/wire_client.h"

namespace velotide::bench {

struct Latency {
  double medianMicroseconds = 0;
  double worstOfHundred = 0;
};

struct LatencyPairs {
  Pairs median;
  Pairs worst;

  void add(const Latency& service, const Latency& floor) {
    median.add(service.medianMicroseconds, floor.medianMicroseconds);
    worst.add(service.worstOfHundred, floor.worstOfHundred);
  }
};

// Times what `sendAndAwait` does with one letter after another.
Latency timeEchoes(const std::function<void(char)>& sendAndAwait);

// From writing a byte to a descriptor to reading it there again.
Latency timeDescriptor(int descriptor);

// Reads until `text` has come by; what comes before it is of no interest.
void awaitText(int descriptor, std::string_view text);

// Echoes through `velotide attach` on a terminal of its own.
Latency attachedClient(const Options& options, const ServiceProcess& service);

}  // namespace velotide::bench
