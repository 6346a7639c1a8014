#pragma once

#include <string>
#include <vector>

#include "end_to_end/measures.h"
#include "end_to_end/service_process.h"
#include "end_to_end/wire_client.h"

namespace velotide::bench {

std::vector<std::string> printingChild(const Options& options, std::uint64_t textBytes);
std::vector<std::string> echoingChild(const Options& options);

// A session whose child prints `textBytes` once it is told to.
class PrintingSession {
 public:
  PrintingSession(const Options& options, const ServiceProcess& service, std::uint64_t textBytes);

  const HostedSession& session() const { return session_; }
  void start();
  // Waits until the service has taken all of it, asking now and then.
  void awaitTaken();
  // Reads back and checks what the service retained, and answers the seconds the child spent printing.
  double checkRetained();
  void close();

 private:
  std::uint64_t takenBytes();

  const ServiceProcess& service_;
  WireClient client_;
  std::uint64_t textBytes_;
  PrintedText text_;
  HostedSession session_;
};

}  // namespace velotide::bench
