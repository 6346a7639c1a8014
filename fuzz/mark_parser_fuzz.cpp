#include "chunks.h"
#include "commands/shell_integration_parser.h"

using namespace velotide;

// Marks are the same in any chunks, lie in the stream in order, and what is kept is bounded.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CutStream input({data, size});
  TerminalShellIntegrationParser whole;
  TerminalShellIntegrationParser cut;
  const auto expected = whole.acceptLocated(input.stream, 7);
  std::vector<TerminalLocatedShellEvent> events;
  std::uint64_t offset = 7;
  bool abandoned = false;
  for (const ByteView chunk : input.chunks) {
    for (const auto& event : cut.acceptLocated(chunk, offset)) events.push_back(event);
    offset += chunk.size();
    require(cut.retainedByteCount() <= TerminalShellIntegrationParser::maximumRetainedBytes);
    abandoned |= cut.retainedByteCount() == TerminalShellIntegrationParser::maximumRetainedBytes;
  }
  // A long mark counts only when it arrives whole.
  if (!abandoned) require(events == expected);
  std::uint64_t end = 7;
  for (const auto& event : events) {
    require(event.startOffset >= end && event.endOffset > event.startOffset && event.endOffset <= offset);
    end = event.endOffset;
  }
  return 0;
}
