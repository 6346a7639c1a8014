#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "end_to_end/service_process.h"
#include "end_to_end/stream.h"
#include "end_to_end/wire_client.h"

namespace velotide::bench {

// Follows a printing session as a client does: subscribes from the oldest output, checks every byte, and when
// the service cuts it off connects again and resumes from its cursor.
class Subscriber {
 public:
  Subscriber(const ServiceProcess& service, const HostedSession& session, std::uint64_t textBytes,
             StreamReceiver::Check check);

  int descriptor() const { return client_.descriptor(); }
  const StreamReceiver& receiver() const { return receiver_; }
  int cutOffs() const { return cutOffs_; }
  // Takes what a ready socket holds.
  void receive();

 private:
  void subscribe();

  const ServiceProcess& service_;
  const HostedSession& session_;
  StreamReceiver receiver_;
  WireClient client_;
  std::string scratch_;
  int cutOffs_ = 0;
};

class Subscribers {
 public:
  Subscribers(const ServiceProcess& service, const HostedSession& session, std::size_t count,
              std::uint64_t textBytes);

  void receiveUntilReady();
  void receiveUntilComplete();
  std::uint64_t lostBytes() const;
  int cutOffs() const;

 private:
  template <class Done>
  void receiveUntil(Done done);

  std::vector<std::unique_ptr<Subscriber>> members_;
};

}  // namespace velotide::bench
