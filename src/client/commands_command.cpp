#include <algorithm>
#include <cstdio>

#include "client/command_history.h"
#include "client/commands.h"
#include "client/event_stream.h"
#include "client/follow.h"
#include "client/printing.h"
#include "client/session_names.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

constexpr const char* lineFormat = "%-8s  %-19s  %9s  %-24s  %s\n";

std::string lengthText(Seconds length) {
  char text[32];
  const auto whole = static_cast<long long>(length);
  if (length < 60)
    std::snprintf(text, sizeof text, "%.2fs", length);
  else if (length < 3600)
    std::snprintf(text, sizeof text, "%lldm%02llds", whole / 60, whole % 60);
  else
    std::snprintf(text, sizeof text, "%lldh%02lldm", whole / 3600, whole / 60 % 60);
  return text;
}

std::string duration(const KnownCommand& command) {
  if (!command.startedAt || (!command.endedAt && !command.isRunning())) return "-";
  const Date end = command.endedAt ? *command.endedAt : SystemClock().date();
  return lengthText(std::max(end - *command.startedAt, 0.0));
}

void printLine(const char* id, const std::string& start, const std::string& length, const std::string& state,
               const std::string& exit) {
  char line[160];
  std::snprintf(line, sizeof line, lineFormat, id, start.c_str(), length.c_str(), state.c_str(),
                exit.c_str());
  print(line);
}

void addTime(std::vector<KnownCommand>& commands, const TerminalSessionEvent& event) {
  const auto command =
      std::ranges::find_if(commands, [&](const KnownCommand& known) { return event.commandID == known.id; });
  if (command == commands.end()) return;
  if (event.kind == TerminalSessionEventKind::commandStarted) command->startedAt = event.occurredAt;
  if (event.kind == TerminalSessionEventKind::commandFinished) command->endedAt = event.occurredAt;
}

// The events' times for commands that are known by their marks alone.
void addTimes(Service& service, std::vector<KnownCommand>& commands) {
  EventStream stream(service, std::nullopt);
  do {
    for (const TerminalSessionEvent& event : stream.read()) addTime(commands, event);
  } while (!stream.isThrough());
}

// Commands on their way to standard output.
class CommandPrinter final : public SessionLink::Observer {
 public:
  CommandPrinter(Service& service, bool asJson) : service_(service), asJson_(asJson) {
    if (!asJson_) printLine("COMMAND", "STARTED", "TIME", "STATE", "EXIT");
  }

  void takeState(const TerminalRuntimeSessionInfo& session) override {
    const auto older = [&](std::uint64_t from, std::uint64_t to) { return findOlder(session, from, to); };
    const std::vector<KnownCommand> changed =
        history_.take(session.generation, session.commands.value_or(Latest()), older);
    for (const KnownCommand& command : changed) show(command);
    if (std::ranges::any_of(changed, [](const auto& each) { return !each.endedAt && !each.isRunning(); }))
      service_.notices().note("When some of the commands ran is no longer known.");
  }
  void takeOutput(ByteView, std::uint64_t) override {}
  void loseConnection() override { service_.notices().note("connection lost: trying again"); }

 private:
  using Latest = std::vector<TerminalRuntimeCommandInfo>;

  void show(const KnownCommand& command) {
    if (asJson_) return printJson(command);
    printLine(shortName(command.id).c_str(), command.startedAt ? localTime(*command.startedAt) : "-",
              duration(command), std::string(rawWord(command.state)),
              command.exitCode ? std::to_string(*command.exitCode) : "-");
  }

  // What ran so fast, or while the connection was lost, that no description named it.
  std::vector<KnownCommand> findOlder(const TerminalRuntimeSessionInfo& session, std::uint64_t from,
                                      std::uint64_t to) {
    HeldCommands held = heldCommands(service_, session, from);
    if (held.missed > 0)
      service_.notices().note(std::to_string(held.missed) +
                              " bytes of output are no longer held; commands that ran there are not shown.");
    std::erase_if(held.commands, [&](const KnownCommand& command) { return command.markerOffset >= to; });
    addTimes(service_, held.commands);
    return std::move(held.commands);
  }

  Service& service_;
  const bool asJson_;
  CommandHistory history_;
};

}  // namespace

int listCommands(Service& service, const std::string& name, bool follows, bool asJson) {
  const TerminalRuntimeSessionInfo session = findSession(service, name);
  if (asJson && !follows && (!session.commands || session.commands->empty())) {
    print("[]\n");
    return ExitStatus::success;
  }
  CommandPrinter printer(service, asJson);
  printer.takeState(session);
  if (!follows) return ExitStatus::success;
  SessionLink link(service, printer, session,
                   TerminalRuntimeOutputCursor{session.generation, session.outputOffset});
  follow(
      link, [] { return false; }, [] {});
  return ExitStatus::success;
}

}  // namespace velotide::client
