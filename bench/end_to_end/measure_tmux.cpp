#include <stdio.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>

#include "end_to_end/draining.h"
#include "end_to_end/echoing.h"
#include "end_to_end/measures.h"
#include "end_to_end/platform.h"
#include "end_to_end/printing.h"
#include "end_to_end/stream.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

constexpr std::uint64_t mebibyte = 1024 * 1024;

// What a shell command prints, and whether it succeeded.
struct Outcome {
  std::string text;
  bool succeeded = false;
};

Outcome outcomeOf(const std::string& command) {
  FILE* const pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) failWithErrno("popen");
  Outcome outcome;
  std::array<char, 4096> buffer;
  while (const std::size_t count = ::fread(buffer.data(), 1, buffer.size(), pipe)) {
    outcome.text.append(buffer.data(), count);
  }
  outcome.succeeded = ::pclose(pipe) == 0;
  return outcome;
}

// A server of its own with one session, without the user's configuration and without a status line.
class TmuxSession {
 public:
  explicit TmuxSession(const std::vector<std::string>& program) {
    std::string command = "new-session -d -x 80 -y 24 '";
    for (const std::string& word : program) command += word + " ";
    ask(command + "' \\; set -g status off");
    while (ask("capture-pane -p").find(readyMark) == std::string::npos) pause(std::chrono::milliseconds(5));
  }
  TmuxSession(const TmuxSession&) = delete;
  ~TmuxSession() { outcomeOf(prefix() + "kill-server 2>/dev/null"); }

  std::string socket() const { return directory_.path() + "/socket"; }
  pid_t server() const {
    const std::string text = ask("display-message -p '#{pid}'");
    pid_t id = 0;
    std::from_chars(text.data(), text.data() + text.size(), id);
    return id;
  }
  std::string ask(const std::string& command) const {
    const Outcome outcome = outcomeOf(prefix() + command);
    if (!outcome.succeeded) throw std::runtime_error("tmux refused: " + command);
    return outcome.text;
  }

 private:
  std::string prefix() const { return "TERM=xterm-256color tmux -f /dev/null -S " + socket() + " "; }

  PrivateDirectory directory_;
};

// The trailer of the printing child, once it stands at the end of the screen.
std::string trailerOn(const TmuxSession& session) {
  std::string screen = session.ask("capture-pane -pJ");
  std::erase_if(screen, [](char character) { return character == '\n' || character == ' '; });
  if (screen.size() < trailerBytes) return {};
  const std::string end = screen.substr(screen.size() - trailerBytes);
  return end.find_first_not_of("0123456789abcdef") == std::string::npos ? end : std::string();
}

Cost printInTmux(const Options& options, std::uint64_t bytes) {
  const TmuxSession session(printingChild(options, bytes));
  const pid_t server = session.server();
  const double before = processorSeconds(server);
  session.ask("send-keys " + std::string(startByte));
  std::string trailer;
  while ((trailer = trailerOn(session)).empty()) pause(std::chrono::milliseconds(100));
  return costOf(bytes, printingSeconds(trailer), processorSeconds(server) - before);
}

// A letter that also ends an escape sequence may be taken for its echo a moment early, to tmux's advantage.
Latency echoInTmux(const Options& options) {
  const TmuxSession session(echoingChild(options));
  const TerminalProcess client = forkOnTerminal([&] {
    return execute({"/usr/bin/env", "tmux", "-S", session.socket(), "attach"}, {{"TERM", "xterm-256color"}});
  });
  awaitText(client.master.get(), readyMark);
  return timeDescriptor(client.master.get());
}

void measureOutputBesideTmux(const Options& options, const std::string& name, Report& report) {
  // Whole periods, so that no sequence is cut off in front of the trailer.
  const std::uint64_t bytes = (options.mebibytes * mebibyte / 2 / printedPeriod + 1) * printedPeriod;
  const ServiceProcess service(options.runtime);
  CostPairs hosted;
  CostPairs drained;
  for (int round = 0; round < options.rounds; ++round) {
    const Cost floor = printInTmux(options, bytes);
    hosted.add(drainService(options, service, bytes), floor);
    drained.add(drainFloor(options, bytes), floor);
  }
  report.add(name + " (floor: tmux)", "MiB/s", hosted.throughput, {Target::Kind::ratioAtLeast, 3});
  report.add(name + ", processor (floor: tmux)", "s/GiB", hosted.processor, {Target::Kind::ratioAtMost, 0.2});
  report.add(name + ", bare drain (floor: tmux)", "MiB/s", drained.throughput, {});
  report.add(name + ", bare drain, processor (floor: tmux)", "s/GiB", drained.processor, {});
}

void measureEchoBesideTmux(const Options& options, Report& report) {
  const ServiceProcess service(options.runtime);
  LatencyPairs echo;
  for (int round = 0; round < options.rounds; ++round) {
    const Latency other = echoInTmux(options);
    echo.add(attachedClient(options, service), other);
  }
  report.add("echo, attached client (floor: tmux)", "us", echo.median, {Target::Kind::ratioAtMost, 1});
}

}  // namespace

// The floor here is no floor: it is the multiplexer that most machines have. What the bare drain reaches
// beside it tells how much of the distance any service can make.
void measureBesideTmux(const Options& options, Report& report) {
  if (!outcomeOf("tmux -V 2>/dev/null").succeeded) return report.note("tmux is not installed");
  Options printing = options;
  measureOutputBesideTmux(printing, "plain lines", report);
  printing.text = PrintedText::screens;
  measureOutputBesideTmux(printing, "an agent's screen", report);
  measureEchoBesideTmux(options, report);
}

}  // namespace velotide::bench
