#include "soak/child.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <thread>

#include "end_to_end/stream.h"
#include "end_to_end/waiting.h"
#include "soak/patience.h"
#include "soak/random.h"

namespace velotide::bench {
namespace {

constexpr std::size_t largestWrite = 65536;
// Longer than anybody waits for the service to kill it; bounded should the service be gone itself.
constexpr std::chrono::seconds stubbornness = soakPatience + std::chrono::seconds(40);

ChildPlan planFrom(const std::vector<std::string>& arguments) {
  if (arguments.size() != 9) throw std::runtime_error("a child without its plan");
  const auto number = [&](std::size_t index) { return std::stoull(arguments[index]); };
  ChildPlan plan;
  plan.kind = static_cast<ChildPlan::Kind>(number(2));
  plan.stream = {number(3), static_cast<KnownStream::Dialect>(number(4))};
  plan.length = number(5);
  plan.bytesPerSecond = number(6);
  plan.largestBurst = static_cast<std::size_t>(number(7));
  plan.exitStatus = static_cast<int>(number(8));
  return plan;
}

void writeStream(const KnownStream& stream, std::uint64_t offset, std::uint64_t count) {
  std::array<char, largestWrite> buffer;
  while (count > 0) {
    const std::span<char> part = std::span(buffer).first(std::min<std::uint64_t>(count, buffer.size()));
    stream.copy(offset, part);
    writeAll(STDOUT_FILENO, {part.data(), part.size()});
    offset += part.size();
    count -= part.size();
  }
}

// Bursts of any size, with pauses that keep the rate.
int writeInBursts(const ChildPlan& plan) {
  Random random(plan.stream.seed);
  const auto begin = Clock::now();
  for (std::uint64_t offset = 0; plan.length == 0 || offset < plan.length;) {
    std::uint64_t count = random.between(1, plan.largestBurst);
    if (plan.length != 0) count = std::min(count, plan.length - offset);
    writeStream(plan.stream, offset, count);
    offset += count;
    std::this_thread::sleep_until(begin +
                                  std::chrono::microseconds(offset * 1'000'000 / plan.bytesPerSecond));
  }
  return plan.exitStatus;
}

int writeStubbornly(const ChildPlan& plan) {
  ::signal(SIGHUP, SIG_IGN);
  try {
    return writeInBursts(plan);
  } catch (const std::exception&) {
    std::this_thread::sleep_for(stubbornness);
    return 1;
  }
}

int echo(const ChildPlan& plan) {
  writeStream(plan.stream, 0, KnownStream::recordBytes);
  std::array<char, 4096> input{};
  while (const std::size_t count = readSome(STDIN_FILENO, input)) {
    const std::string_view bytes(input.data(), count);
    const std::size_t end = bytes.find(ChildPlan::farewell);
    writeAll(STDOUT_FILENO, bytes.substr(0, end));
    if (end != std::string_view::npos) return plan.exitStatus;
  }
  return 1;
}

}  // namespace

std::vector<std::string> ChildPlan::arguments(const std::string& program) const {
  return {program,
          std::string(childOption),
          std::to_string(static_cast<int>(kind)),
          std::to_string(stream.seed),
          std::to_string(static_cast<int>(stream.dialect)),
          std::to_string(length),
          std::to_string(bytesPerSecond),
          std::to_string(largestBurst),
          std::to_string(exitStatus)};
}

int runChild(const std::vector<std::string>& arguments) {
  const ChildPlan plan = planFrom(arguments);
  makeTerminalRaw();
  switch (plan.kind) {
    case ChildPlan::Kind::writing:
      return writeInBursts(plan);
    case ChildPlan::Kind::stubborn:
      return writeStubbornly(plan);
    case ChildPlan::Kind::echoing:
      return echo(plan);
  }
  return 1;
}

}  // namespace velotide::bench
