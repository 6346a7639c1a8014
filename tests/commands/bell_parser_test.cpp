#include "commands/bell_parser.h"

#include <gtest/gtest.h>

#include "support/random_text.h"

namespace velotide {
namespace {

struct Result {
  std::uint64_t bells = 0;
  std::string visible;
  bool operator==(const Result&) const = default;
};

// `accept` must count what `consume` counts.
Result parse(const std::string& text, std::size_t chunkSize) {
  TerminalBellParser parser;
  TerminalBellParser counter;
  ByteQueue visible;
  Result result;
  for (std::size_t at = 0; at < text.size(); at += chunkSize) {
    const std::string chunk = text.substr(at, chunkSize);
    const std::uint64_t bells = parser.consume(bytesOf(chunk), visible);
    EXPECT_EQ(counter.accept(bytesOf(chunk)), bells);
    result.bells += bells;
  }
  result.visible = visible.text();
  return result;
}

TEST(BellParser, TellsBellsAndVisibleTextFromControlSequences) {
  const std::string high = "\x7f\x80\xff";
  const std::string line = "quite ordinary output \xe2\x94\x80\t\r\n";
  const struct {
    const char* name;
    std::string text;
    std::uint64_t bells;
    std::string visible;
  } rows[] = {{"lone bell", "\a", 1, ""},
              {"text around bells", "a\a\ab", 2, "ab"},
              {"colour", "ls\x1b[31mx\r\n", 0, "lsx\r\n"},
              {"white space stays, other controls go", std::string("a\0b\tc\n\v\f\b\x1f", 10) + high, 0,
               "ab\tc\n" + high},
              {"title", "\x1b]0;title\ax", 0, "x"},
              {"title cut short", "\x1b]0;t\x18x\x1b]0;t\x1ay", 0, "xy"},
              {"title with an escape inside", "\x1b]0;a\x1b[b\x1b\x1b\\x\x1b]\x1b\ay", 0, "xy"},
              {"bell inside a sequence", "\x1b[\am\x1b\a[1mz", 2, "z"},
              {"sequence broken by another", "\x1b[31\x1b]0;t\ax", 0, "x"},
              {"not a final byte", "\x1b[\x7f\x80 1@x", 0, "x"},
              {"device control", "\x1bPq\a\x1b[\a\x1b\x1b\\x", 0, "x"},
              {"other strings",
               "\x1bXa\x1b\\1\x1b^b\x18"
               "2\x1b_c\x1a"
               "3",
               0, "123"},
              {"character set", "\x1b(B\x1b\x1b=x", 0, "Bx"},
              {"longer than a block",
               repeat(line, 4) + "\a" + line + "\x1b]0;" + repeat(line, 3) + "\ax\x1bP" + repeat(line, 3) +
                   "\x1b\\\a",
               2, repeat(line, 5) + "x"},
              {"sequence longer than a block", "\x1b[" + repeat("1", 62) + "m" + line + line, 0, line + line},
              {"still open", "\x1b]0;text", 0, ""}};
  for (const auto& row : rows) {
    const Result whole{row.bells, row.visible};
    for (const std::size_t chunkSize : {1000U, 33U, 3U, 1U}) {
      EXPECT_EQ(parse(row.text, chunkSize), whole) << row.name << " in chunks of " << chunkSize;
    }
  }
}

}  // namespace
}  // namespace velotide
