#include <stdexcept>
#include <vector>

#include "soak/patience.h"
#include "soak/visitors.h"

namespace velotide::bench {
namespace {

constexpr std::size_t frameLimit = 131072;
constexpr std::size_t moreThanQueue = 8 * 1024 * 1024;
constexpr std::size_t crowdSize = 12;

// Whether the service ends the connection, whatever it sends before.
bool isEnded(WireClient& client) {
  const auto deadline = attendedNow() + soakPatience;
  std::vector<char> ignored(65536);
  while (attendedNow() < deadline) {
    pollfd entry{client.descriptor(), POLLIN, 0};
    if (::poll(&entry, 1, 100) > 0 && readSome(client.descriptor(), ignored) == 0) return true;
  }
  return false;
}

void requireEnded(WireClient& client, const std::string& reason) {
  if (!isEnded(client)) throw std::runtime_error("a connection lives on after " + reason);
}

// The service may end the connection before it has taken everything.
void push(WireClient& client, std::string_view bytes) {
  try {
    writeAll(client.descriptor(), bytes);
  } catch (const ConnectionEnded&) {
  }
}

}  // namespace

Intruder::Intruder(const ServiceProcess& service, Tally& tally, std::uint64_t seed)
    : service_(service), tally_(tally), random_(seed) {}

void Intruder::act() {
  pause(std::chrono::milliseconds(random_.between(10, 400)));
  ++tally_.intrusions;
  switch (random_.below(12)) {
    case 0:
      return leaveHalfARequest();
    case 1:
      return sendTooMuch();
    case 2:
      return neverRead();
    case 3:
      return crowd();
    default:
      return sendGarbage();
  }
}

void Intruder::sendGarbage() {
  WireClient client = service_.connect();
  std::string garbage;
  for (std::uint64_t count = random_.between(1, 3000); count > 0; --count) {
    garbage += static_cast<char>(random_.below(256));
  }
  if (random_.oneIn(3)) garbage = std::string(random_.between(1, 60000), random_.oneIn(2) ? '[' : '{');
  if (random_.oneIn(3)) garbage = R"({"protocolVersion":3,"id":"x","action":"hello")";
  push(client, garbage);
  if (random_.oneIn(2)) return;
  push(client, "\n");
  requireEnded(client, "garbage");
}

void Intruder::sendTooMuch() {
  WireClient client = service_.connect();
  push(client, std::string(frameLimit + random_.between(1, frameLimit), ' '));
  requireEnded(client, "a request without end");
}

void Intruder::leaveHalfARequest() {
  WireClient client = service_.connect();
  push(client, R"({"protocolVersion":3,"id":)");
  requireEnded(client, "half a request");
}

// Asks for more than fits into its queue.
void Intruder::neverRead() {
  WireClient client = service_.connect();
  try {
    for (std::size_t asked = 0; asked < moreThanQueue; asked += 20'000) client.send("list");
  } catch (const ConnectionEnded&) {
    return;
  }
  requireEnded(client, "answers that nobody took");
}

// More than there is room for; those who are turned away come back later.
void Intruder::crowd() {
  std::vector<WireClient> clients;
  while (clients.size() < crowdSize) {
    clients.push_back(service_.connect());
    try {
      clients.back().send("hello");
    } catch (const ConnectionEnded&) {
    }
  }
  pause(std::chrono::milliseconds(50));
}

}  // namespace velotide::bench
