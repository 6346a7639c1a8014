#include "commands/shell_integration_parser.h"

#include <gtest/gtest.h>

#include <limits>

#include "commands/unicode_text.h"
#include "support/random_text.h"

namespace velotide {
namespace {

using Events = std::vector<TerminalLocatedShellEvent>;

const std::string prefix = "\x1b]777;Velotide;";
std::string mark(const std::string& payload, const std::string& terminator = "\a") {
  return prefix + payload + terminator;
}

// Searches everything it keeps again with each chunk: slow, and simple enough to be believed.
class PlainModel {
 public:
  Events accept(std::string_view chunk, std::uint64_t offset) {
    if (chunk.empty()) return {};
    if (next_ != offset) buffer_.clear();
    if (buffer_.empty()) bufferOffset_ = offset;
    next_ = offset + chunk.size();
    buffer_ += chunk;
    Events events;
    for (std::size_t at; (at = buffer_.find(prefix)) != buffer_.npos;) {
      const std::size_t begin = at + prefix.size();
      const std::size_t bell = buffer_.find('\a', begin);
      const std::size_t string = buffer_.find("\x1b\\", begin);
      const std::size_t end = std::min(bell, string);
      if (end == buffer_.npos) {
        drop(at);
        if (buffer_.size() > 32768) drop(buffer_.size() - 32768);
        return events;
      }
      const std::size_t behind = end + (string < bell ? 2 : 1);
      if (end - begin <= 32768) {
        const std::string payload = buffer_.substr(begin, end - begin);
        const auto event = parseShellIntegrationPayload(payload);
        if (event && isUtf8(payload)) events.push_back({*event, bufferOffset_ + at, bufferOffset_ + behind});
      }
      drop(behind);
    }
    if (buffer_.size() > 14) drop(buffer_.size() - 14);
    return events;
  }
  std::size_t retained() const { return buffer_.size(); }

 private:
  void drop(std::size_t count) {
    buffer_.erase(0, count);
    bufferOffset_ += count;
  }

  std::string buffer_;
  std::uint64_t bufferOffset_ = 0;
  std::optional<std::uint64_t> next_;
};

using Started = TerminalShellCommandStarted;
using Finished = TerminalShellCommandFinished;
using Context = TerminalShellReportedContext;

TEST(ShellIntegrationPayload, FollowsTheGrammar) {
  const struct {
    std::string payload;
    TerminalShellIntegrationEvent event;
  } rows[] = {
      {"start=6c73", Started{"ls"}},
      {"start= 6C73\r\n", Started{"ls"}},
      {"start=0a20c3a90a", Started{"\xc3\xa9"}},
      {"start=20", Started{""}},
      {"start=c2a0", Started{""}},
      {"end=0", Finished{0}},
      {"end=-1", Finished{-1}},
      {"end=\xc2\x85+130 ", Finished{130}},
      {"end=-2147483648", Finished{std::numeric_limits<std::int32_t>::min()}},
      {"shell= zsh ", TerminalShellDetected{"zsh"}},
      {"context=2f,61,501,68,7368", Context{"/", "a", 501, "h", "sh"}},
      {"context=,,501,,", Context{{}, {}, 501, {}, {}}},
      {"context=2,,99999999999999999999,,7368", Context{{}, {}, {}, {}, "sh"}},
  };
  for (const auto& row : rows)
    EXPECT_TRUE(parseShellIntegrationPayload(row.payload) == row.event) << row.payload;
  for (const char* payload :
       {"start=", "start=6c7", "start=6x", "start=+f", "start=ff", "start=6c 73", "Start=6c73",
        "end=2147483648", "end=", "end=-", "end=+-1", "end=1x", "end=0x1", "shell= \t", "context=,,,,",
        "context=2f,61,501,68", "context=2f,61,501,68,7368,", "other", ""})
    EXPECT_FALSE(parseShellIntegrationPayload(payload)) << payload;
}

TEST(ShellIntegrationParser, FindsTheSameMarksWhereverTheStreamIsCut) {
  const std::string stream = "text" + mark("start=6c73") + "out\x1b[1m" + mark("end=0", "\x1b\\") +
                             mark("shell=fi\x1bsh") + mark("shell=a\ab\x1b\\") + prefix.substr(0, 9) +
                             mark("context=,,7,,", "\x1b\\") + mark("end=x") + "\x1b" + mark("end=-1") +
                             mark("shell=\xff") + mark("shell=" + mark("end=3")) + "\x1b]777;";
  const std::uint64_t base = 1'000'000;
  const Events whole = PlainModel().accept(stream, base);
  ASSERT_EQ(whole.size(), 7u);
  EXPECT_EQ(whole[0].startOffset, base + 4);
  EXPECT_EQ(whole[0].endOffset, base + 4 + mark("start=6c73").size());
  for (std::size_t first = 0; first <= stream.size(); ++first) {
    for (const std::size_t rest : {stream.size(), std::size_t{1}}) {
      TerminalShellIntegrationParser parser;
      Events events = parser.acceptLocated(bytesOf(stream).first(first), base);
      for (std::size_t at = first; at < stream.size(); at += rest) {
        const auto chunk = bytesOf(stream).subspan(at, std::min(rest, stream.size() - at));
        for (auto& event : parser.acceptLocated(chunk, base + at)) events.push_back(event);
      }
      ASSERT_TRUE(events == whole) << "cut at " << first;
    }
  }
}

TEST(ShellIntegrationParser, BehavesLikeThePlainModel) {
  const std::string filling(9000, 'x');
  const std::string nearlyFull(32'740, 'y');
  const std::string_view whole = "\x1b]777;Velotide;end=2\a";
  const std::string_view pieces[] = {"text",  "\x1b",  "\a",      "\\",   "\x1b\\", prefix,  "\x1b]777;Velo",
                                     "tide;", "end=1", "shell=a", "\xff", whole,    filling, nearlyFull};
  std::size_t found = 0;
  std::size_t abandoned = 0;
  for (std::uint32_t seed = 0; seed < 400; ++seed) {
    Choices choices(seed);
    const std::string stream = choices.text({pieces, seed % 2 ? 12 : std::size(pieces)}, 60);
    TerminalShellIntegrationParser parser;
    PlainModel model;
    std::uint64_t offset = choices.below(100);
    for (std::size_t at = 0; at < stream.size();) {
      const std::size_t limits[] = {2, 20, 300, 40'000};
      const std::size_t size = 1 + choices.below(limits[choices.below(seed % 2 ? 2 : 4)]);
      const std::string chunk = stream.substr(at, size);
      if (choices.below(50) == 0) offset += 1 + choices.below(3);
      const Events expected = model.accept(chunk, offset);
      ASSERT_TRUE(parser.acceptLocated(bytesOf(chunk), offset) == expected)
          << "seed " << seed << " at " << at;
      ASSERT_EQ(parser.retainedByteCount(), model.retained()) << "seed " << seed << " at " << at;
      found += expected.size();
      abandoned += model.retained() == 32'768;
      at += size;
      offset += chunk.size();
    }
  }
  EXPECT_GT(found, 1000u);
  EXPECT_GT(abandoned, 20u);
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
