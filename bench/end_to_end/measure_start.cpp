#include <vector>

#include "end_to_end/measures.h"
#include "end_to_end/printing.h"
#include "end_to_end/service_process.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

constexpr int startsPerRound = 20;
constexpr rlim_t highDescriptorLimit = 1048576;
constexpr std::uint64_t fullJournalBytes = 1024 * 1024;
constexpr int otherSessions = 63;

// A small program that prints and ends: what remains is what starting one costs.
const std::vector<std::string> firstOutputChild{"/bin/sh", "-c", "echo first output"};

double bareMilliseconds() {
  const auto begin = Clock::now();
  const TerminalProcess child = forkOnTerminal([] { return execute(firstOutputChild); });
  awaitReadable(child.master.get());
  char byte = 0;
  if (readSome(child.master.get(), {&byte, 1}) == 0) throw std::runtime_error("a bare child printed nothing");
  return secondsBetween(begin, Clock::now()) * 1000;
}

// From writing the create request to holding the first output, which takes a second request, to subscribe.
double createMilliseconds(const ServiceProcess& service) {
  WireClient client = service.connect();
  client.call("hello");
  std::string scratch;
  const auto begin = Clock::now();
  const HostedSession session = createSession(client, firstOutputChild);
  client.send("subscribe", session.address());
  std::string_view line = client.receive();
  while (!outputIn(line, scratch)) line = client.receive();
  const double milliseconds = secondsBetween(begin, Clock::now()) * 1000;
  while (line.find(R"("running":false)") == std::string_view::npos) line = client.receive();
  closeSession(client, session);
  return milliseconds;
}

void addCreateFigure(const Options& options, Report& report, const std::string& name,
                     const ServiceProcess& service) {
  Pairs pairs;
  for (int round = 0; round < options.rounds; ++round) {
    Pairs starts;
    for (int start = 0; start < startsPerRound; ++start) {
      const double floor = bareMilliseconds();
      starts.add(createMilliseconds(service), floor);
    }
    pairs.add(median(starts.service), median(starts.floor));
  }
  report.add(name, "ms", pairs, {Target::Kind::ratioAtMost, 1.5});
}

}  // namespace

void measureStart(const Options& options, Report& report) {
  std::vector<double> milliseconds;
  for (int round = 0; round < options.rounds; ++round) {
    milliseconds.push_back(ServiceProcess(options.runtime).secondsToHello() * 1000);
  }
  report.addService("start to first answered hello", "ms", median(milliseconds),
                    {Target::Kind::serviceBelow, 50});
}

void measureCreate(const Options& options, Report& report) {
  const ServiceProcess service(options.runtime);
  addCreateFigure(options, report, "create to first output", service);
}

void measureCreateUnderHighLimit(const Options& options, Report& report) {
  const RaisedDescriptorLimit limit(highDescriptorLimit);
  const ServiceProcess service(options.runtime);
  const std::string reached = std::to_string(limit.reached());
  if (limit.reached() < highDescriptorLimit) {
    report.note("only " + reached + " descriptors instead of " + std::to_string(highDescriptorLimit) +
                ": a higher limit is not permitted here");
  }
  addCreateFigure(options, report, "create to first output, " + reached + " descriptors", service);
}

void measureCreateBesideFullJournals(const Options& options, Report& report) {
  const ServiceProcess service(options.runtime);
  for (int index = 0; index < otherSessions; ++index) {
    PrintingSession printing(options, service, fullJournalBytes);
    printing.start();
    printing.awaitTaken();
  }
  addCreateFigure(options, report, "create to first output, 63 full journals", service);
}

}  // namespace velotide::bench
