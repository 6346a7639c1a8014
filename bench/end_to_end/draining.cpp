#include "end_to_end/draining.h"

#include <stdexcept>

#include "end_to_end/floors.h"
#include "end_to_end/platform.h"
#include "end_to_end/printing.h"
#include "end_to_end/stream.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

std::string readExactly(int descriptor, std::size_t count) {
  std::string bytes(count, '\0');
  for (std::size_t filled = 0; filled < count;) {
    awaitReadable(descriptor);
    const std::size_t part = readSome(descriptor, std::span<char>(bytes).subspan(filled));
    if (part == 0) throw std::runtime_error("the stream of a floor ended early");
    filled += part;
  }
  return bytes;
}

}  // namespace

void CostPairs::add(const Cost& service, const Cost& floor) {
  throughput.add(service.mebibytesPerSecond, floor.mebibytesPerSecond);
  processor.add(service.processorSecondsPerGibibyte, floor.processorSecondsPerGibibyte);
}

Cost costOf(std::uint64_t bytes, double seconds, double processorSeconds) {
  const double mebibytes = static_cast<double>(bytes) / (1024 * 1024);
  return {mebibytes / seconds, processorSeconds * 1024 / mebibytes};
}

TerminalProcess startPrinting(const Options& options, std::uint64_t bytes) {
  return forkOnTerminal([&] { return execute(printingChild(options, bytes)); });
}

Cost drainFloor(const Options& options, std::uint64_t bytes) {
  const TerminalProcess child = startPrinting(options, bytes);
  readExactly(child.master.get(), readyMark.size());
  SocketPair result = socketPair();
  const Process drain = forkProcess([&] {
    result.here.close();
    return drainTerminal(child.master.get(), bytes, result.there.get());
  });
  result.there.close();
  const double before = processorSeconds(drain.id());
  writeAll(child.master.get(), startByte);
  const double seconds = printingSeconds(readExactly(result.here.get(), trailerBytes));
  return costOf(bytes, seconds, processorSeconds(drain.id()) - before);
}

Cost drainService(const Options& options, const ServiceProcess& service, std::uint64_t bytes) {
  PrintingSession printing(options, service, bytes);
  const double before = processorSeconds(service.id());
  printing.start();
  printing.awaitTaken();
  const double used = processorSeconds(service.id()) - before;
  const Cost cost = costOf(bytes, printing.checkRetained(), used);
  printing.close();
  return cost;
}

}  // namespace velotide::bench
