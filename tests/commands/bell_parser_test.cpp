#include "commands/bell_parser.h"

#include <gtest/gtest.h>

#include "support/repeated_text.h"

namespace velotide {
namespace {

TEST(BellParser, TellsBellsAndVisibleTextFromControlSequences) {
  const std::string high = "\x7f\x80\xff";
  const std::string line = "quite ordinary output \xe2\x94\x80\t\r\n";
  struct Row {
    const char* name;
    std::string text;
    std::uint64_t bells;
    std::string visible;
  };
  for (const Row& row :
       {Row{"text around bells", "a\a\ab", 2, "ab"},
        Row{"white space stays, other controls go", std::string("a\0b\tc\n\v\f\b\x1f", 10) + high, 0,
            "ab\tc\n" + high},
        Row{"title", "\x1b]0;title\ax", 0, "x"},
        Row{"title cut short", "\x1b]0;t\x18x\x1b]0;t\x1ay", 0, "xy"},
        Row{"title with an escape inside", "\x1b]0;a\x1b[b\x1b\x1b\\x\x1b]\x1b\ay", 0, "xy"},
        Row{"bell inside a sequence", "\x1b[\am\x1b\a[1mz", 2, "z"},
        Row{"sequence broken by another", "\x1b[31\x1b]0;t\ax", 0, "x"},
        Row{"not a final byte", "\x1b[\x7f\x80 1@x", 0, "x"},
        Row{"device control", "\x1bPq\a\x1b[\a\x1b\x1b\\x", 0, "x"},
        Row{"other strings", "\x1bXa\x1b\\x\x1b^b\x18y\x1b_c\x1az", 0, "xyz"},
        Row{"character set", "\x1b(B\x1b\x1b=x", 0, "Bx"},
        Row{"longer than a block",
            repeat(line, 4) + "\a" + line + "\x1b]0;" + repeat(line, 3) + "\ax\x1bP" + repeat(line, 3) +
                "\x1b\\\a",
            2, repeat(line, 5) + "x"},
        Row{"sequence longer than a block", "\x1b[" + repeat("1", 62) + "m" + line + line, 0, line + line},
        Row{"still open", "\x1b]0;text", 0, ""}}) {
    for (const std::size_t chunkSize : {1000U, 33U, 3U, 1U}) {
      TerminalBellParser parser;
      ByteQueue visible;
      std::uint64_t bells = 0;
      for (std::size_t at = 0; at < row.text.size(); at += chunkSize)
        bells += parser.consume(bytesOf(std::string_view(row.text).substr(at, chunkSize)), visible);
      EXPECT_EQ(bells, row.bells) << row.name << " in chunks of " << chunkSize;
      EXPECT_EQ(visible.text(), row.visible) << row.name << " in chunks of " << chunkSize;
    }
  }
}

}  // namespace
}  // namespace velotide
