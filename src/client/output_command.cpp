#include <algorithm>

#include "client/attach.h"
#include "client/command_output.h"
#include "client/commands.h"
#include "client/follow.h"
#include "client/launch.h"
#include "client/session_journal.h"
#include "client/session_names.h"
#include "client/shown_output.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

[[noreturn]] void failNotHeld() {
  throw Trouble(
      "The output of that command is no longer held, at least not from its beginning. What is held of the "
      "session's: velotide read");
}

std::vector<KnownCommand> describedCommands(const TerminalRuntimeSessionInfo& session) {
  std::vector<KnownCommand> commands;
  for (const auto& command : session.commands.value_or(std::vector<TerminalRuntimeCommandInfo>()))
    commands.push_back(KnownCommand::of(command));
  return commands;
}

bool isSurrounding(const Uuid& session) {
  const std::vector<Uuid> surrounding = surroundingSessions();
  return std::find(surrounding.begin(), surrounding.end(), session) != surrounding.end();
}

KnownCommand lastCommand(const TerminalRuntimeSessionInfo& session) {
  std::vector<KnownCommand> commands = describedCommands(session);
  // In the session itself this very command is the one that runs.
  if (!commands.empty() && commands.back().isRunning() && isSurrounding(session.id)) commands.pop_back();
  if (commands.empty()) throw Trouble("No command ran in the session so far, or none was told of.");
  return commands.back();
}

// The one whose ID begins so, if there is one.
std::optional<KnownCommand> named(const std::string& name, const std::vector<KnownCommand>& commands) {
  const std::vector<const KnownCommand*> found = namedBy(name, commands);
  if (found.size() > 1)
    throw Trouble(name + " fits several commands, among them " + found[0]->id.text() + " and " +
                  found[1]->id.text() + ". Give more of the ID.");
  return found.empty() ? std::nullopt : std::optional(*found.front());
}

KnownCommand findCommand(Service& service, const TerminalRuntimeSessionInfo& session,
                         const std::string& name) {
  if (name == "last") return lastCommand(session);
  if (std::optional<KnownCommand> found = named(name, describedCommands(session))) return *found;
  // An older one, if its output is held still.
  if (std::optional<KnownCommand> found = named(name, heldCommands(service, session, 0).commands))
    return *found;
  throw Trouble("No command of the session is named " + name +
                ", or its output is no longer held. `velotide commands` shows the latest.");
}

// Where to begin reading for it.
std::uint64_t leadOf(const KnownCommand& command) {
  return command.markerOffset - std::min(command.markerOffset, CommandOutput::lead);
}

void printHeld(Service& service, const TerminalRuntimeSessionInfo& session, const KnownCommand& command) {
  ShownOutput shown(ShownOutput::Signals::own);
  CommandOutput scan(command.markerOffset);
  ByteQueue output;
  readJournal(service, session, leadOf(command), [&](ByteView piece, std::uint64_t offset) {
    scan.accept(piece, offset, output);
    shown.print(output.view());
    output.clear();
    if (scan.isLost()) failNotHeld();
    return !scan.isOver();
  });
}

// Output of a command that runs, as it comes.
class RunningOutput final : public SessionLink::Observer {
 public:
  RunningOutput(const Notices& notices, std::uint64_t markerOffset, const Uuid& generation)
      : notices_(notices), generation_(generation), scan_(markerOffset) {}

  void takeOutput(ByteView output, std::uint64_t offset) override {
    if (isDone()) return;
    scan_.accept(output, offset, found_);
    shown_.print(found_.view());
    found_.clear();
    if (scan_.isLost()) failNotHeld();
  }
  void takeState(const TerminalRuntimeSessionInfo& session) override {
    isRestarted_ = session.generation != generation_;
  }
  void loseConnection() override { notices_.note("connection lost: trying again"); }

  void giveBack() { shown_.giveBack(); }
  bool isDone() const { return isRestarted_ || scan_.isOver(); }

 private:
  const Notices& notices_;
  const Uuid generation_;
  ShownOutput shown_{ShownOutput::Signals::owners};
  CommandOutput scan_;
  ByteQueue found_;
  bool isRestarted_ = false;
};

void printRunning(Service& service, const TerminalRuntimeSessionInfo& session, const KnownCommand& command) {
  refuseOwnSession(session.id);
  RunningOutput output(service.notices(), command.markerOffset, session.generation);
  SessionLink link(service, output, session,
                   TerminalRuntimeOutputCursor{session.generation, leadOf(command)});
  follow(
      link, [&] { return output.isDone(); }, [&] { output.giveBack(); });
}

}  // namespace

int printCommandOutput(Service& service, const std::string& sessionName, const std::string& commandName,
                       bool follows) {
  const TerminalRuntimeSessionInfo session = findSession(service, sessionName);
  const KnownCommand command = findCommand(service, session, commandName);
  if (command.generation != session.generation) failNotHeld();
  if (follows && command.isRunning())
    printRunning(service, session, command);
  else
    printHeld(service, session, command);
  return ExitStatus::success;
}

}  // namespace velotide::client
