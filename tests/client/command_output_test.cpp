#include "client/command_output.h"

#include <gtest/gtest.h>

#include "client/prompt_screen.h"
#include "support/repeated_text.h"

namespace velotide::client {

namespace {

std::string mark(const std::string& payload) { return "\x1b]777;Velotide;" + payload + "\x1b\\"; }

const std::string start = mark("start=6C73");
const std::string end = mark("end=0");
const std::string place = mark("shell=fish") + mark("context=2F,,,,");
const std::string prelude = "\x1b[?2004l\x1b]0;ls /\a\x1b[30m\x1b(B\x1b[m\r";

struct Case {
  std::string before;
  std::string behind;
  std::string output;
  bool isOver = true;
};

TEST(CommandOutput, IsTheSameInAnyChunks) {
  for (const Case& row : {
           Case{"$ ls\r\n", "a\r\nb" + end + "$ ", "a\r\nb"},
           {"", end, ""},
           {"other " + start + "x" + end, "a" + end, "a"},
           {"ended by the next start", "a" + place + start + "b", "a"},
           {"no text", "a" + mark("start=20") + "b" + end, "a" + mark("start=20") + "b"},
           {"places that touch", place + "a" + place + end, "a"},
           {"a place within", "a" + place + "b" + end, "a" + place + "b"},
           {"running", "a\x1b[m", "a\x1b[m", false},
           {"running in a mark", "a\x1b]777;Velo", "a", false},
           {"unknown", mark("what") + "a" + end, mark("what") + "a"},
           {place, prelude + "\x1b[31ma" + end, "\x1b[31ma"},
           {place, "\x1b[30m\x1b(B\x1b[m\ra" + end, "\ra"},
           {place, prelude + end, ""},
           {place, "\x1b[?2004l" + end, ""},
           {mark("shell=zsh"), prelude + end, prelude},
       }) {
    const std::string stream = row.before + start + row.behind;
    for (std::size_t split = 0; split <= stream.size(); ++split) {
      CommandOutput scan(row.before.size());
      ByteQueue output;
      scan.accept(bytesOf(std::string_view(stream).substr(0, split)), 0, output);
      scan.accept(bytesOf(std::string_view(stream).substr(split)), split, output);
      EXPECT_EQ(output.text(), row.output) << row.before << row.behind << " split at " << split;
      EXPECT_EQ(scan.isOver(), row.isOver);
      EXPECT_FALSE(scan.isLost());
    }
  }
}

TEST(CommandOutput, IsLostWithAGapBehindItsStart) {
  ByteQueue output;
  CommandOutput scan(100);
  scan.accept(bytesOf("before a gap"), 0, output);
  scan.accept(bytesOf(start + "abc"), 100, output);
  EXPECT_FALSE(scan.isLost());
  scan.accept(bytesOf("more"), 104 + start.size(), output);
  EXPECT_TRUE(scan.isLost());
  EXPECT_EQ(output.text(), "abc");
}

TEST(CommandOutput, HoldsNoMoreMarksThanAShellMakes) {
  ByteQueue output;
  CommandOutput scan(0);
  const std::string marks = repeat(place, 2 * CommandOutput::maximumHeldMarks / place.size());
  scan.accept(bytesOf(start + "a" + marks), 0, output);
  EXPECT_GE(output.size() + CommandOutput::maximumHeldMarks, marks.size());
}

TEST(PromptScreen, LosesWhatIsPushedBehindItsLastColumn) {
  PromptScreen screen;
  const std::string prompt = mark("shell=bash") + "$ \r\nx\r\x1b[1999@";
  screen.take(bytesOf(prompt + "\x1b[A\x1b[3G"), 0);
  EXPECT_FALSE(screen.isEmptyPrompt());
  screen.take(bytesOf(prompt + "\x1b[@\x1b[A\x1b[3G"), prompt.size());
  EXPECT_TRUE(screen.isEmptyPrompt());
}

}  // namespace

}  // namespace velotide::client
