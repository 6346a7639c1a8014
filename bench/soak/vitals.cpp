#include "soak/vitals.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "end_to_end/json_text.h"
#include "end_to_end/platform.h"
#include "soak/patience.h"

namespace velotide::bench {
namespace {

constexpr std::uint64_t journalCapacity = 1024 * 1024;
constexpr std::uint64_t page = 4096;
constexpr int readingsAtRest = 5;
// The service gives free memory back every two seconds.
constexpr std::chrono::milliseconds settlingTime{2200};

std::size_t descriptorsWithOneClient(const ServiceProcess& service, SteadyClient& client) {
  client.require("list");
  return openDescriptors(service.id());
}

}  // namespace

Vitals::Vitals(const ServiceProcess& service, Tally& tally)
    : service_(service),
      client_(service, tally),
      ownDescriptors_(descriptorsWithOneClient(service, client_)) {}

Vitals::Reading Vitals::read() {
  Reading reading;
  const std::string list = client_.require("list");
  reading.residentBytes = residentBytes(service_.id());
  reading.descriptors = openDescriptors(service_.id());
  reading.processorSeconds = processorSeconds(service_.id());
  constexpr std::string_view offset = R"("outputOffset":)";
  for (std::size_t at = list.find(offset); at != std::string::npos; at = list.find(offset, at + 1)) {
    const std::uint64_t written = requireNumber(std::string_view(list).substr(at), "outputOffset");
    reading.journalBytes += std::min(journalCapacity, (written + page - 1) / page * page);
  }
  constexpr std::string_view running = R"("running":true)";
  for (std::size_t at = list.find(running); at != std::string::npos; at = list.find(running, at + 1)) {
    ++reading.sessions;
  }
  return reading;
}

// Children go on writing: of a few readings the smallest is the one with the least on its way.
Vitals::Reading Vitals::readAtRest() {
  pause(settlingTime);
  const auto deadline = attendedNow() + soakPatience;
  Reading reading = read();
  while (reading.descriptors != ownDescriptors_ + reading.sessions) {
    if (attendedNow() > deadline) {
      throw std::runtime_error("expected " + std::to_string(ownDescriptors_) +
                               " descriptors and one for each of " + std::to_string(reading.sessions) +
                               " sessions, seen " + std::to_string(reading.descriptors));
    }
    pause(std::chrono::milliseconds(50));
    reading = read();
  }
  for (int count = 1; count < readingsAtRest; ++count) {
    pause(std::chrono::milliseconds(20));
    const Reading next = read();
    if (next.otherBytes() < reading.otherBytes()) reading = next;
  }
  return reading;
}

void Vitals::checkDisconnects() {
  static constexpr std::array<std::string_view, 8> due{
      "output_backpressure", "write_deadline", "subscription_failed", "invalid_frame",
      "request_too_large",   "read_failed",    "write_failed",        "socket_error"};
  const std::string record = client_.require("diagnostics");
  constexpr std::string_view key = R"({"reason":)";
  for (std::size_t at = record.find(key); at != std::string::npos; at = record.find(key, at + 1)) {
    const std::string reason = requireText(std::string_view(record).substr(at), "reason");
    if (std::ranges::find(due, reason) != due.end()) continue;
    throw std::runtime_error("a client was dropped without reason: " + reason);
  }
}

}  // namespace velotide::bench
