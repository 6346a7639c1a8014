#include "client/session_journal.h"

#include "commands/shell_integration_parser.h"

namespace velotide::client {

namespace {

void apply(const TerminalLocatedShellEvent& mark, const Uuid& generation,
           std::vector<KnownCommand>& commands) {
  const bool hasRunning = !commands.empty() && commands.back().isRunning();
  const auto* started = std::get_if<TerminalShellCommandStarted>(&mark.event);
  if (const auto* finished = std::get_if<TerminalShellCommandFinished>(&mark.event); finished && hasRunning) {
    commands.back().exitCode = finished->exitCode;
    commands.back().state = finished->exitCode == 0 ? TerminalCommandLifecycleState::succeeded
                                                    : TerminalCommandLifecycleState::failed;
  } else if (started && !started->text.empty()) {
    if (hasRunning) commands.back().state = TerminalCommandLifecycleState::superseded;
    KnownCommand command;
    command.id = TerminalRuntimeCommandInfo::identity(generation, mark.startOffset);
    command.generation = generation;
    command.markerOffset = mark.startOffset;
    commands.push_back(command);
  }
}

}  // namespace

KnownCommand KnownCommand::of(const TerminalRuntimeCommandInfo& command) {
  return {command.id,      command.generation, command.markerOffset, command.startedAt,
          command.endedAt, command.exitCode,   command.state};
}

void readJournal(Service& service, const TerminalRuntimeSessionInfo& session, std::uint64_t offset,
                 const std::function<bool(ByteView piece, std::uint64_t offset)>& take) {
  std::optional<std::uint64_t> end;
  for (;;) {
    TerminalRuntimeRequest request = Service::about(session, TerminalRuntimeAction::read);
    request.after = TerminalRuntimeOutputCursor{session.generation, offset};
    const TerminalRuntimeResponse response = service.call(request);
    const ByteView data = response.data.value().head();
    offset = response.cursor.value().offset;
    // Up to what was there when first asked, or a busy session would never be done.
    if (!end) end = response.latestOffset;
    if (data.empty() || !take(data, offset - data.size()) || offset >= *end) return;
  }
}

HeldCommands heldCommands(Service& service, const TerminalRuntimeSessionInfo& session, std::uint64_t offset) {
  HeldCommands held;
  TerminalShellIntegrationParser parser;
  readJournal(service, session, offset, [&](ByteView piece, std::uint64_t begin) {
    // How a command ended that ran into a gap is not known.
    if (begin > offset && !held.commands.empty() && held.commands.back().isRunning())
      held.commands.pop_back();
    held.missed += begin - offset;
    offset = begin + piece.size();
    for (const TerminalLocatedShellEvent& mark : parser.acceptLocated(piece, begin))
      apply(mark, session.generation, held.commands);
    return true;
  });
  return held;
}

}  // namespace velotide::client
