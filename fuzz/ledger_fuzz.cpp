#include "chunks.h"
#include "commands/command_ledger.h"

using namespace velotide;

// At most one command runs, and it is the last; each change is reported once; all lists are bounded; and all
// is the same in one chunk.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CutStream input({data, size});
  TerminalRuntimeCommandLedger ledger;
  std::uint64_t offset = 0;
  std::size_t started = 0;
  std::size_t finished = 0;
  for (const ByteView chunk : input.chunks) {
    for (const auto& record : ledger.accept(chunk, offset, Uuid{}, Date{1})) {
      ++(record.endedAt ? finished : started);
      require(record.endedAt.has_value() == (record.state != TerminalCommandLifecycleState::running));
    }
    offset += chunk.size();
  }
  const auto& commands = ledger.commands();
  require(commands.size() == std::min(started, TerminalRuntimeCommandLedger::maximumCommands));
  const bool running = !commands.empty() && !commands.back().endedAt;
  require(started == finished + (running ? 1 : 0));
  for (std::size_t index = 0; index < commands.size(); ++index) {
    const auto* evidence = ledger.evidence(commands[index].id);
    require(evidence != nullptr && evidence->outputStart <= offset);
    require(evidence->outputStart > commands[index].markerOffset);
    if (evidence->outputEnd) require(*evidence->outputEnd >= evidence->outputStart);
    require(commands[index].endedAt || index + 1 == commands.size());
  }
  TerminalRuntimeCommandLedger whole;
  whole.accept(input.stream, 0, Uuid{}, Date{1});
  // A long mark counts only when it arrives whole.
  const bool isShort = size <= TerminalShellIntegrationParser::maximumRetainedBytes;
  require(!isShort || whole.commands() == commands);
  for (const auto& command : commands) {
    require(ledger.find(command.id) == &command);
    require(!isShort || *whole.evidence(command.id) == *ledger.evidence(command.id));
  }
  const auto last = ledger.finish(TerminalCommandLifecycleState::completedUnknownStatus, {}, {}, Date{2});
  require(last.has_value() == running);
  return 0;
}
