#include <unistd.h>

#include <array>
#include <functional>
#include <string>

#include "end_to_end/base64.h"
#include "end_to_end/crowd.h"
#include "end_to_end/echoing.h"
#include "end_to_end/floors.h"
#include "end_to_end/json_text.h"
#include "end_to_end/measures.h"
#include "end_to_end/printing.h"
#include "end_to_end/service_process.h"
#include "end_to_end/stream.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

constexpr int warmUps = 100;
constexpr int echoes = 1000;

// Each echo sends another letter, so that a late one cannot be taken for the next.
char letterOf(int index) { return static_cast<char>('a' + index % 26); }

TerminalProcess startEchoing(const Options& options) {
  return forkOnTerminal([&] { return execute(echoingChild(options)); });
}

Latency bareTerminal(const Options& options) {
  const TerminalProcess child = startEchoing(options);
  awaitText(child.master.get(), readyMark);
  return timeDescriptor(child.master.get());
}

// An echoing child behind a relay process behind a socket.
class RelayedEcho {
 public:
  explicit RelayedEcho(const Options& options)
      : child_(startEchoing(options)), ends_(socketPair()), relay_(forkProcess([this] {
          ends_.here.close();
          const int terminal = child_.master.get();
          return relayBothWays(terminal, terminal, ends_.there.get(), ends_.there.get());
        })) {
    ends_.there.close();
  }

  int socket() const { return ends_.here.get(); }

 private:
  TerminalProcess child_;
  SocketPair ends_;
  Process relay_;
};

Latency relayFloor(const Options& options) {
  const RelayedEcho echo(options);
  awaitText(echo.socket(), readyMark);
  return timeDescriptor(echo.socket());
}

Latency bareClientFloor(const Options& options) {
  const RelayedEcho echo(options);
  const TerminalProcess client = forkOnTerminal([&] {
    makeTerminalRaw();
    return relayBothWays(STDIN_FILENO, STDOUT_FILENO, echo.socket(), echo.socket());
  });
  awaitText(client.master.get(), readyMark);
  return timeDescriptor(client.master.get());
}

void awaitOutput(WireClient& client, std::string_view base64, std::string& scratch) {
  while (true) {
    const auto batch = outputIn(client.receive(), scratch);
    if (batch && batch->base64 == base64) return;
  }
}

// From writing the input request to having the push that carries the echo.
Latency socketClient(const Options& options, const ServiceProcess& service) {
  WireClient client = service.connect();
  HostedSession session = createSession(client, echoingChild(options));
  client.send("subscribe", session.address());
  std::string scratch;
  awaitOutput(client, encodeBase64(readyMark), scratch);
  const Latency latency = timeEchoes([&](char letter) {
    const std::string_view byte(&letter, 1);
    client.send("input", session.inputFields(byte));
    awaitOutput(client, encodeBase64(byte), scratch);
  });
  closeSession(client, session);
  return latency;
}

// Another terminal that a process of its own drains as fast as it can.
Latency busyRelayFloor(const Options& options) {
  const TerminalProcess printing =
      forkOnTerminal([&] { return execute(printingChild(options, std::uint64_t{1} << 50)); });
  awaitText(printing.master.get(), readyMark);
  SocketPair report = socketPair();
  const Process drain = forkProcess([&] {
    report.here.close();
    return drainTerminal(printing.master.get(), std::uint64_t{1} << 50, report.there.get());
  });
  writeAll(printing.master.get(), startByte);
  return relayFloor(options);
}

// The same while another session prints as fast as it can.
Latency busySocketClient(const Options& options, const ServiceProcess& service) {
  Crowd printing(options, service, 1);
  printing.start();
  const Latency latency = socketClient(options, service);
  printing.close();
  return latency;
}

TerminalProcess attach(const Options& options, const ServiceProcess& service, const HostedSession& session) {
  return forkOnTerminal([&] {
    return execute({options.client, "attach", session.id},
                   {{"VELOTIDE_ROOT", service.root()}, {"TERM", "xterm-256color"}});
  });
}

}  // namespace

Latency timeEchoes(const std::function<void(char)>& sendAndAwait) {
  for (int index = 0; index < warmUps; ++index) sendAndAwait(letterOf(index));
  std::vector<double> microseconds;
  for (int index = 0; index < echoes; ++index) {
    const auto begin = Clock::now();
    sendAndAwait(letterOf(index + warmUps));
    microseconds.push_back(secondsBetween(begin, Clock::now()) * 1e6);
  }
  return {median(microseconds), quantile(microseconds, 0.99)};
}

void awaitText(int descriptor, std::string_view text) {
  std::string seen;
  std::array<char, 4096> buffer;
  while (seen.find(text) == std::string::npos) {
    awaitReadable(descriptor);
    const std::size_t count = readSome(descriptor, buffer);
    if (count == 0) throw std::runtime_error("the echoing side ended; it said: " + seen);
    seen.append(buffer.data(), count);
  }
}

Latency timeDescriptor(int descriptor) {
  return timeEchoes([descriptor](char letter) {
    const std::string_view byte(&letter, 1);
    writeAll(descriptor, byte);
    awaitText(descriptor, byte);
  });
}

Latency attachedClient(const Options& options, const ServiceProcess& service) {
  WireClient control = service.connect();
  const HostedSession session = createSession(control, echoingChild(options));
  const TerminalProcess client = attach(options, service, session);
  // The mark passes the client only once its terminal is raw.
  awaitText(client.master.get(), readyMark);
  const Latency latency = timeDescriptor(client.master.get());
  WireClient closing = service.connect();
  closeSession(closing, session);
  return latency;
}

void measureEcho(const Options& options, Report& report) {
  const ServiceProcess service(options.runtime);
  LatencyPairs pairs;
  LatencyPairs busy;
  std::vector<double> bare;
  for (int round = 0; round < options.rounds; ++round) {
    bare.push_back(bareTerminal(options).medianMicroseconds);
    const Latency floor = relayFloor(options);
    pairs.add(socketClient(options, service), floor);
    const Latency busyFloor = busyRelayFloor(options);
    busy.add(busySocketClient(options, service), busyFloor);
  }
  report.addFloor("echo, bare terminal", "us", median(bare));
  report.add("echo, socket client", "us", pairs.median, {Target::Kind::ratioAtMost, 1.25});
  report.add("echo, socket client, 99th percentile", "us", pairs.worst, {Target::Kind::ratioAtMost, 2.0});
  report.add("echo beside a printing session", "us", busy.median, {Target::Kind::ratioAtMost, 1.25});
  report.addService("echo beside a printing session, 99th percentile", "us", median(busy.worst.service),
                    {Target::Kind::serviceBelow, 2000});
}

void measureAttachedEcho(const Options& options, Report& report) {
  const ServiceProcess service(options.runtime);
  LatencyPairs pairs;
  for (int round = 0; round < options.rounds; ++round) {
    const Latency floor = bareClientFloor(options);
    pairs.add(attachedClient(options, service), floor);
  }
  report.add("echo, attached client", "us", pairs.median, {Target::Kind::ratioAtMost, 1.6});
  report.add("echo, attached client, 99th percentile", "us", pairs.worst, {});
}

}  // namespace velotide::bench
