#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "end_to_end/measures.h"
#include "end_to_end/service_process.h"
#include "end_to_end/wire_client.h"

namespace velotide::bench {

// Sessions that print without end, all at once, while their rates are read from the service's own list.
class Crowd {
 public:
  struct Rates {
    double mebibytesPerSecond = 0;
    // What the slowest session printed, as a part of an equal share.
    double leastShare = 0;
  };

  Crowd(const Options& options, const ServiceProcess& service, std::size_t count);

  const std::vector<HostedSession>& sessions() const { return sessions_; }
  void start();
  // Over a second and a half.
  Rates rates() const;
  void close();

 private:
  // Bytes that each session has printed.
  std::vector<std::uint64_t> printed() const;

  const ServiceProcess& service_;
  std::vector<HostedSession> sessions_;
};

}  // namespace velotide::bench
