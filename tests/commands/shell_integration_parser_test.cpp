#include "commands/shell_integration_parser.h"

#include <gtest/gtest.h>

#include <limits>

namespace velotide {
namespace {

using Events = std::vector<TerminalLocatedShellEvent>;

const std::string prefix = "\x1b]777;Velotide;";
std::string mark(const std::string& payload, const std::string& terminator = "\a") {
  return prefix + payload + terminator;
}

using Started = TerminalShellCommandStarted;
using Finished = TerminalShellCommandFinished;
using Context = TerminalShellReportedContext;

TEST(ShellIntegrationPayload, FollowsTheGrammar) {
  using Row = std::pair<std::string, TerminalShellIntegrationEvent>;
  for (const auto& [payload, event] :
       {Row{"start=6c73", Started{"ls"}}, Row{"start= 6C73\r\n", Started{"ls"}},
        Row{"start=0a20c3a90a", Started{"\xc3\xa9"}}, Row{"start=20", Started{""}},
        Row{"start=c2a0", Started{""}}, Row{"end=0", Finished{0}}, Row{"end=-1", Finished{-1}},
        Row{"end=\xc2\x85+130 ", Finished{130}},
        Row{"end=-2147483648", Finished{std::numeric_limits<std::int32_t>::min()}},
        Row{"shell= zsh ", TerminalShellDetected{"zsh"}},
        Row{"context=2f,61,501,68,7368", Context{"/", "a", 501, "h", "sh"}},
        Row{"context=,,501,,", Context{{}, {}, 501, {}, {}}},
        Row{"context=2,,99999999999999999999,,7368", Context{{}, {}, {}, {}, "sh"}}})
    EXPECT_TRUE(parseShellIntegrationPayload(payload) == event) << payload;
  for (const char* payload :
       {"start=", "start=6c7", "start=6x", "start=+f", "start=ff", "start=6c 73", "Start=6c73",
        "end=2147483648", "end=", "end=-", "end=+-1", "end=1x", "end=0x1", "shell= \t", "context=,,,,",
        "context=2f,61,501,68", "context=2f,61,501,68,7368,", "other", ""})
    EXPECT_FALSE(parseShellIntegrationPayload(payload)) << payload;
}

TEST(ShellIntegrationParser, FindsTheSameMarksWhereverTheStreamIsCut) {
  using Piece = std::pair<std::string, std::optional<TerminalShellIntegrationEvent>>;
  const std::uint64_t base = 1'000'000;
  std::string stream;
  Events expected;
  for (const auto& [text, event] :
       {Piece{"text", {}}, Piece{mark("start=6c73"), Started{"ls"}}, Piece{"out\x1b[1m", {}},
        Piece{mark("end=0", "\x1b\\"), Finished{0}},
        Piece{mark("shell=fi\x1bsh"), TerminalShellDetected{"fi\x1bsh"}},
        Piece{mark("shell=a"), TerminalShellDetected{"a"}}, Piece{"b\x1b\\\a" + prefix.substr(0, 9), {}},
        Piece{mark("context=,,7,,", "\x1b\\"), Context{{}, {}, 7, {}, {}}}, Piece{mark("end=x") + "\x1b", {}},
        Piece{mark("end=-1"), Finished{-1}}, Piece{mark("shell=\xff"), {}},
        Piece{mark("shell=" + prefix + "end=3"), TerminalShellDetected{prefix + "end=3"}},
        Piece{"\a\x1b]777;", {}}}) {
    const std::uint64_t begin = base + stream.size();
    stream += text;
    if (event) expected.push_back({*event, begin, base + stream.size()});
  }
  for (std::size_t first = 0; first <= stream.size(); ++first) {
    TerminalShellIntegrationParser parser;
    Events events = parser.acceptLocated(bytesOf(stream).first(first), base);
    for (auto& event : parser.acceptLocated(bytesOf(stream).subspan(first), base + first))
      events.push_back(event);
    ASSERT_TRUE(events == expected) << "cut at " << first;
  }
}

TEST(ShellIntegrationParser, BoundsPayloadsAndOffsets) {
  const std::string longest = "shell=" + std::string(32'768 - 6, 'x');
  TerminalShellIntegrationParser parser;
  EXPECT_EQ(parser.accept(bytesOf(mark(longest) + mark(longest + "x") + mark("end=5"))).size(), 2u);
  EXPECT_EQ(parser.retainedByteCount(), 0u);
  // One that does not arrive whole is given up as soon as it cannot be kept.
  EXPECT_TRUE(parser.accept(bytesOf(prefix + longest)).empty());
  EXPECT_EQ(parser.retainedByteCount(), TerminalShellIntegrationParser::maximumRetainedBytes);
  EXPECT_TRUE(parser.accept(bytesOf("\a")).empty());
  EXPECT_EQ(parser.retainedByteCount(), 14u);

  parser.acceptLocated(bytesOf(prefix), 100);
  const std::uint64_t last = std::numeric_limits<std::uint64_t>::max();
  EXPECT_TRUE(parser.acceptLocated(bytesOf("end=0\a"), last - 5).empty());
  EXPECT_EQ(parser.retainedByteCount(), 0u);
  EXPECT_EQ(parser.acceptLocated(bytesOf(mark("end=0")), last - 21).size(), 1u) << "ends at the last offset";
}

}  // namespace
}  // namespace velotide
