#include "end_to_end/draining.h"
#include "end_to_end/floors.h"
#include "end_to_end/json_text.h"
#include "end_to_end/platform.h"
#include "end_to_end/printing.h"
#include "end_to_end/stream.h"
#include "end_to_end/subscriber.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

constexpr std::uint64_t mebibyte = 1024 * 1024;
constexpr std::size_t manySubscribers = 16;

void receiveRelayed(int socket, LineReader& lines, StreamReceiver& receiver) {
  awaitReadable(socket);
  if (!lines.fill(socket)) throw std::runtime_error("the relay ended early");
  while (const auto line = lines.next()) receiver.accept(findText(*line, "data").value(), std::nullopt);
}

Cost relayFloor(const Options& options, std::uint64_t bytes) {
  const TerminalProcess child = startPrinting(options, bytes);
  SocketPair ends = socketPair();
  const Process relay = forkProcess([&] {
    ends.here.close();
    return relayTerminal(child.master.get(), ends.there.get());
  });
  ends.there.close();
  LineReader lines;
  StreamReceiver receiver(bytes, StreamReceiver::Check::decoded);
  while (!receiver.ready()) receiveRelayed(ends.here.get(), lines, receiver);
  const double before = processorSeconds(relay.id());
  const auto begin = Clock::now();
  writeAll(child.master.get(), startByte);
  while (!receiver.complete()) receiveRelayed(ends.here.get(), lines, receiver);
  const double seconds = secondsBetween(begin, Clock::now());
  return costOf(bytes, seconds, processorSeconds(relay.id()) - before);
}

struct Losses {
  std::uint64_t bytes = 0;
  int cutOffs = 0;
};

Cost subscribedService(const Options& options, const ServiceProcess& service, std::uint64_t bytes,
                       std::size_t count, Losses& losses) {
  PrintingSession printing(options, service, bytes);
  Subscribers subscribers(service, printing.session(), count, bytes);
  subscribers.receiveUntilReady();
  const double before = processorSeconds(service.id());
  const auto begin = Clock::now();
  printing.start();
  subscribers.receiveUntilComplete();
  const double seconds = secondsBetween(begin, Clock::now());
  const Cost cost = costOf(bytes, seconds, processorSeconds(service.id()) - before);
  losses.bytes += subscribers.lostBytes();
  losses.cutOffs += subscribers.cutOffs();
  printing.close();
  return cost;
}

void noteCutOffs(Report& report, const std::string& name, const Losses& losses) {
  if (losses.cutOffs == 0) return;
  report.note(name + ": subscribers were cut off " + std::to_string(losses.cutOffs) +
              " times and resumed from their cursor");
}

}  // namespace

void measureOutput(const Options& options, Report& report) {
  const std::uint64_t bytes = options.mebibytes * mebibyte;
  const ServiceProcess service(options.runtime);
  CostPairs pairs;
  for (int round = 0; round < options.rounds; ++round) {
    const Cost floor = drainFloor(options, bytes);
    pairs.add(drainService(options, service, bytes), floor);
  }
  report.add("output, no subscriber", "MiB/s", pairs.throughput, {Target::Kind::ratioAtLeast, 0.90});
  report.add("output, no subscriber, processor", "s/GiB", pairs.processor, {Target::Kind::ratioAtMost, 1.15});
}

void measureSubscribedOutput(const Options& options, Report& report) {
  const std::uint64_t bytes = options.mebibytes * mebibyte;
  const ServiceProcess service(options.runtime);
  CostPairs pairs;
  Losses losses;
  for (int round = 0; round < options.rounds; ++round) {
    const Cost floor = relayFloor(options, bytes);
    pairs.add(subscribedService(options, service, bytes, 1, losses), floor);
  }
  report.add("output, 1 subscriber", "MiB/s", pairs.throughput, {Target::Kind::ratioAtLeast, 0.88});
  report.add("output, 1 subscriber, processor", "s/GiB", pairs.processor, {Target::Kind::ratioAtMost, 1.2});
  report.addService("output, 1 subscriber, lost", "bytes", static_cast<double>(losses.bytes),
                    {Target::Kind::serviceZero});
  noteCutOffs(report, "1 subscriber", losses);
}

// The floor here is what sixteen times one subscriber would cost.
void measureManySubscribers(const Options& options, Report& report) {
  const std::uint64_t bytes = std::max<std::uint64_t>(options.mebibytes / 4, 1) * mebibyte;
  const ServiceProcess service(options.runtime);
  CostPairs pairs;
  Losses ignored;
  Losses losses;
  for (int round = 0; round < options.rounds; ++round) {
    Cost linear = subscribedService(options, service, bytes, 1, ignored);
    linear.processorSecondsPerGibibyte *= manySubscribers;
    linear.mebibytesPerSecond /= manySubscribers;
    pairs.add(subscribedService(options, service, bytes, manySubscribers, losses), linear);
  }
  report.add("output, 16 subscribers (floor: 16 x one)", "MiB/s", pairs.throughput, {});
  report.add("output, 16 subscribers, processor", "s/GiB", pairs.processor, {Target::Kind::ratioAtMost, 1.1});
  report.addService("output, 16 subscribers, lost", "bytes", static_cast<double>(losses.bytes),
                    {Target::Kind::serviceZero});
  noteCutOffs(report, "16 subscribers", losses);
}

}  // namespace velotide::bench
