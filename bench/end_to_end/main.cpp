#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <climits>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "end_to_end/measures.h"
#include "end_to_end/platform.h"
#include "end_to_end/stream.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

constexpr const char* help =
    R"(velotide-bench: measures a running service, each figure beside its floor in the same run.

  --only NAME          one measure: output, subscribed, many, crowd, burden, echo, attach, agents, tmux,
                       memory, idle, start, create, create-limit, create-journals
  --rounds N           pairs of floor and service (5)
  --mib N              output of one round in MiB (64)
  --memory-mib N       output whose memory is measured (256)
  --idle-seconds N     length of the idle measure (5)
  --runtime PATH       service (build/bin/velotide-runtime)
  --client PATH        client (build/bin/velotide)
  --json FILE          writes the table there too
  --timeout SECONDS    gives up after (900)

Ends with 0 when everything was measured, whether or not it reached its target, and with 1 on a failure.
)";

struct Measure {
  std::string_view name;
  void (*run)(const Options&, Report&);
};

constexpr std::array measures{
    Measure{"output", measureOutput},
    Measure{"subscribed", measureSubscribedOutput},
    Measure{"many", measureManySubscribers},
    Measure{"crowd", measureCrowd},
    Measure{"burden", measureBurden},
    Measure{"echo", measureEcho},
    Measure{"attach", measureAttachedEcho},
    Measure{"agents", measureAgents},
    Measure{"tmux", measureBesideTmux},
    Measure{"memory", measureMemory},
    Measure{"idle", measureIdle},
    Measure{"start", measureStart},
    Measure{"create", measureCreate},
    Measure{"create-limit", measureCreateUnderHighLimit},
    Measure{"create-journals", measureCreateBesideFullJournals},
};

template <class Number>
Number numberFrom(const std::string& text, Number least) {
  Number number{};
  const auto end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || number < least)
    throw std::runtime_error("not a usable number: " + text);
  return number;
}

// The path is handed to sessions, which need it absolute.
std::string absolutePath(const std::string& path) {
  std::array<char, PATH_MAX> resolved;
  if (::realpath(path.c_str(), resolved.data()) == nullptr) failWithErrno(path);
  return resolved.data();
}

void takeOption(Options& options, const std::string& name, const std::string& value) {
  if (name == "--only")
    options.only = value;
  else if (name == "--rounds")
    options.rounds = numberFrom(value, 1);
  else if (name == "--mib")
    options.mebibytes = numberFrom<std::uint64_t>(value, 1);
  else if (name == "--memory-mib")
    options.memoryMebibytes = numberFrom<std::uint64_t>(value, 1);
  else if (name == "--idle-seconds")
    options.idleSeconds = numberFrom(value, 1);
  else if (name == "--runtime")
    options.runtime = value;
  else if (name == "--client")
    options.client = value;
  else if (name == "--json")
    options.jsonFile = value;
  else if (name == "--timeout")
    options.timeoutSeconds = numberFrom(value, 1);
  else
    throw std::runtime_error("unknown option " + name + "; --help lists them");
}

Options optionsFrom(const std::vector<std::string>& arguments) {
  Options options;
  options.program = absolutePath(arguments[0]);
  for (std::size_t index = 1; index < arguments.size(); index += 2) {
    if (index + 1 == arguments.size())
      throw std::runtime_error("a value is missing behind " + arguments[index]);
    takeOption(options, arguments[index], arguments[index + 1]);
  }
  return options;
}

// Other work on the machine shows in every figure; whoever reads the table should know of it.
void noteLoad(Report& report) {
  double oneMinute = 0;
  if (::getloadavg(&oneMinute, 1) != 1) return;
  std::ostringstream text;
  text << "load average at the start: " << oneMinute;
  report.note(text.str());
}

// Figures reach the table as far as they were measured, also when one measure fails.
int runMeasures(const Options& options) {
  Report report;
  noteLoad(report);
  bool found = false;
  int status = 0;
  for (const Measure& measure : measures) {
    if (!options.only.empty() && options.only != measure.name) continue;
    found = true;
    std::cerr << "measuring " << measure.name << "\n";
    try {
      measure.run(options, report);
    } catch (const Interrupted& reason) {
      std::cerr << "velotide-bench: " << reason.what() << "\n";
      return 1;
    } catch (const std::exception& failure) {
      report.note(std::string(measure.name) + " failed: " + failure.what());
      status = 1;
    }
  }
  if (!found) throw std::runtime_error("no measure is called " + options.only);
  report.printTable(std::cout);
  if (!options.jsonFile.empty()) {
    std::ofstream file(options.jsonFile);
    report.writeJson(file);
    if (!file.flush()) throw std::runtime_error("cannot write " + options.jsonFile);
  }
  return status;
}

int run(const std::vector<std::string>& arguments) {
  if (arguments.size() == 2 && arguments[1] == "--help") {
    std::cout << help;
    return 0;
  }
  if (arguments.size() == 4 && arguments[1] == "--print") {
    return printStream(numberFrom<std::uint64_t>(arguments[2], 0), printedTextNamed(arguments[3]));
  }
  if (arguments.size() == 2 && arguments[1] == "--echo") return echoInput();
  Options options = optionsFrom(arguments);
  options.runtime = absolutePath(options.runtime);
  adoptOrphans();
  endOnSignalsOrAfter(std::chrono::seconds(options.timeoutSeconds));
  return runMeasures(options);
}

}  // namespace
}  // namespace velotide::bench

int main(int count, char** arguments) {
  try {
    return velotide::bench::run({arguments, arguments + count});
  } catch (const std::exception& failure) {
    std::cerr << "velotide-bench: " << failure.what() << "\n";
    return 1;
  }
}
