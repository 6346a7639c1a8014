#include "chunks.h"
#include "commands/bell_parser.h"

using namespace velotide;

// Bells and visible bytes are the same in any chunks, and counting alone counts the same.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CutStream input({data, size});
  TerminalBellParser whole;
  TerminalBellParser cut;
  TerminalBellParser counter;
  ByteQueue visibleWhole;
  ByteQueue visibleCut;
  const std::uint64_t expected = whole.consume(input.stream, visibleWhole);
  std::uint64_t bells = 0;
  for (const ByteView chunk : input.chunks) {
    const std::uint64_t inChunk = cut.consume(chunk, visibleCut);
    require(counter.accept(chunk) == inChunk);
    bells += inChunk;
  }
  require(bells == expected);
  require(visibleCut.text() == visibleWhole.text());
  require(bells + visibleCut.size() <= input.stream.size());
  return 0;
}
