#include "chunks.h"
#include "client/cell_text.h"
#include "client/command_output.h"
#include "client/command_watch.h"
#include "client/past_output.h"
#include "client/prompt_screen.h"
#include "client/terminal_modes.h"
#include "client/zsh_line_end.h"

using namespace velotide;
using namespace velotide::client;

namespace {

using Chunks = std::vector<ByteView>;

// Does something with each chunk and where it begins.
void follow(const Chunks& chunks, auto&& take) {
  std::uint64_t offset = 0;
  for (const ByteView chunk : chunks) {
    take(chunk, offset);
    offset += chunk.size();
  }
}

std::string scanned(const Chunks& chunks) {
  SequenceScanner scanner;
  std::string seen;
  for (const ByteView chunk : chunks) {
    scanner.scan(
        textOf(chunk), [&](std::string_view text) { seen += text; },
        [&](std::string_view sequence) { seen += sequence; });
    require(scanner.held().size() <= SequenceScanner::maximumSequence);
  }
  return seen + scanner.takeHeld();
}

std::string switchedOff(const Chunks& chunks) {
  TerminalModes modes;
  for (const ByteView chunk : chunks) modes.observe(textOf(chunk));
  std::string off = modes.switchOff();
  if (modes.isBetweenSequences()) {
    modes.observe(off);
    require(modes.switchOff().empty());
  }
  return off;
}

std::string filtered(const Chunks& chunks) {
  PastOutput past;
  std::string shown;
  for (const ByteView chunk : chunks) shown += past.filter(textOf(chunk));
  return shown + past.rest();
}

std::string promptSeen(const Chunks& chunks) {
  PromptScreen screen;
  follow(chunks, [&](ByteView chunk, std::uint64_t offset) { screen.take(chunk, offset); });
  return std::to_string(static_cast<int>(screen.phase())) + screen.shell() +
         std::to_string(screen.isEmptyPrompt()) + std::to_string(screen.takesPaste());
}

std::string commandOutput(const Chunks& chunks, std::uint64_t marker) {
  CommandOutput command(marker);
  ByteQueue output;
  follow(chunks, [&](ByteView chunk, std::uint64_t offset) { command.accept(chunk, offset, output); });
  return std::string(output.text()) + std::to_string(command.isOver()) + std::to_string(command.isLost());
}

std::string watchedOutput(const Chunks& chunks) {
  CommandWatch watch(0);
  std::string output;
  follow(chunks, [&](ByteView chunk, std::uint64_t offset) { output += watch.take(chunk, offset); });
  output += watch.rest();
  return output + std::to_string(static_cast<int>(watch.state())) +
         std::to_string(watch.markerOffset().value_or(0));
}

std::string withoutLineEnd(const Chunks& chunks) {
  ZshLineEnd lineEnd;
  std::string output;
  for (const ByteView chunk : chunks) output += lineEnd.filter(textOf(chunk));
  return output + lineEnd.end();
}

void checkText(std::string_view text, std::size_t cells) {
  const std::string shown = shownText(text);
  require(shownText(shown) == shown);
  require(cellsOf(keepBeginning(shown, cells)) <= cells && cellsOf(keepEnd(shown, cells)) <= cells);
  require(cellsOf(alignLeft(shown, cells)) == cells && cellsOf(alignRight(shown, cells)) == cells);
}

}  // namespace

// Whatever a session prints: the client's readers of it see the same in any chunks, lose nothing that they
// are to pass on, and leave nothing that would act on the terminal of whoever looks at it later.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CutStream input({data, size});
  const Chunks whole = {input.stream};
  require(scanned(input.chunks) == textOf(input.stream));
  require(switchedOff(input.chunks) == switchedOff(whole));
  const std::string past = filtered(whole);
  require(filtered(input.chunks) == past);
  require(filtered({bytesOf(past)}) == past);
  require(promptSeen(input.chunks) == promptSeen(whole));
  const std::size_t marker = textOf(input.stream).find("\x1b]777;Velotide;start=");
  if (marker != std::string_view::npos)
    require(commandOutput(input.chunks, marker) == commandOutput(whole, marker));
  require(watchedOutput(input.chunks) == watchedOutput(whole));
  require(withoutLineEnd(input.chunks) == withoutLineEnd(whole));
  checkText(textOf(input.stream), size % 32 + 1);
  return 0;
}
