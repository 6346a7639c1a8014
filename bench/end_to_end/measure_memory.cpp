#include <vector>

#include "end_to_end/measures.h"
#include "end_to_end/platform.h"
#include "end_to_end/printing.h"
#include "end_to_end/service_process.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

constexpr std::uint64_t mebibyte = 1024 * 1024;
constexpr int mostSessions = 64;
constexpr int idleSessions = 16;

double residentMebibytes(const ServiceProcess& service) {
  return static_cast<double>(residentBytes(service.id())) / static_cast<double>(mebibyte);
}

void createIdleSessions(const ServiceProcess& service, int count) {
  WireClient client = service.connect();
  for (int index = 0; index < count; ++index) createSession(client, {"/bin/cat"});
}

// Lets the children get through their start.
void settle() { pause(std::chrono::milliseconds(500)); }

double addedByIdleSessions(const Options& options) {
  const ServiceProcess service(options.runtime);
  const double before = residentMebibytes(service);
  createIdleSessions(service, mostSessions);
  settle();
  return residentMebibytes(service) - before;
}

double proportionalMebibytes(const ServiceProcess& service) {
  return static_cast<double>(proportionalBytes(service.id())) / static_cast<double>(mebibyte);
}

struct Whole {
  double idle = 0;
  double printed = 0;
};

// The whole service with its sessions, idle and after each has printed 4 MiB.
Whole wholeService(const Options& options) {
  const ServiceProcess service(options.runtime);
  createIdleSessions(service, idleSessions);
  settle();
  Whole whole{proportionalMebibytes(service), 0};
  const ServiceProcess printing(options.runtime);
  for (int index = 0; index < idleSessions; ++index) {
    PrintingSession session(options, printing, 4 * mebibyte);
    session.start();
    session.awaitTaken();
  }
  whole.printed = proportionalMebibytes(printing);
  return whole;
}

double addedByPrinting(const Options& options) {
  const ServiceProcess service(options.runtime);
  PrintingSession printing(options, service, options.memoryMebibytes * mebibyte);
  const double before = residentMebibytes(service);
  printing.start();
  printing.awaitTaken();
  return residentMebibytes(service) - before;
}

}  // namespace

void measureMemory(const Options& options, Report& report) {
  const Whole whole = wholeService(options);
  report.addService("memory of all with 16 idle sessions", "MiB", whole.idle,
                    {Target::Kind::serviceBelow, 6});
  report.addService("memory of all, 4 MiB printed in each", "MiB", whole.printed,
                    {Target::Kind::serviceBelow, idleSessions * 1.2});
  report.addService("memory added by 64 idle sessions", "MiB", addedByIdleSessions(options),
                    {Target::Kind::serviceBelow, 10});
  const std::string printed = std::to_string(options.memoryMebibytes);
  report.addService("memory added by printing " + printed + " MiB", "MiB", addedByPrinting(options),
                    {Target::Kind::serviceBelow, 2});
}

void measureIdle(const Options& options, Report& report) {
  const ServiceProcess service(options.runtime);
  createIdleSessions(service, idleSessions);
  // Past the five seconds after which the service ends the connection that created them.
  pause(std::chrono::milliseconds(5500));
  const double before = processorSeconds(service.id());
  const auto begin = Clock::now();
  pause(std::chrono::seconds(options.idleSeconds));
  const double used = processorSeconds(service.id()) - before;
  report.addService("idle with 16 sessions", "% core", used / secondsBetween(begin, Clock::now()) * 100,
                    {Target::Kind::serviceBelow, 0.5});
}

}  // namespace velotide::bench
