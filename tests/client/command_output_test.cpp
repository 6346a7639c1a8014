#include "client/command_output.h"

#include <gtest/gtest.h>

#include "client/command_history.h"

namespace velotide::client {

namespace {

std::string mark(const std::string& payload) { return "\x1b]777;Velotide;" + payload + "\x1b\\"; }

const std::string start = mark("start=6C73");
const std::string end = mark("end=0");
const std::string place = mark("shell=fish") + mark("context=2F,,,,");
const std::string prelude = "\x1b[?2004l\x1b]0;ls /\a\x1b[30m\x1b(B\x1b[m\r";

struct Case {
  const char* name;
  std::string before;
  std::string behind;
  std::string output;
  bool isOver = true;
};

class Output : public testing::TestWithParam<Case> {};

TEST_P(Output, IsTheSameInAnyChunks) {
  const Case& row = GetParam();
  const std::string stream = row.before + start + row.behind;
  for (std::size_t split = 0; split <= stream.size(); ++split) {
    CommandOutput scan(row.before.size());
    ByteQueue output;
    scan.accept(bytesOf(std::string_view(stream).substr(0, split)), 0, output);
    scan.accept(bytesOf(std::string_view(stream).substr(split)), split, output);
    EXPECT_EQ(output.text(), row.output) << "split at " << split;
    EXPECT_EQ(scan.isOver(), row.isOver);
    EXPECT_FALSE(scan.isLost());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Streams, Output,
    testing::Values(Case{"Plain", "$ ls\r\n", "a\r\nb" + end + "$ ", "a\r\nb"}, Case{"None", "", end, ""},
                    Case{"OtherCommandsBefore", start + "x" + end, "a" + end, "a"},
                    Case{"EndsWithTheNextStart", "", "a" + place + start + "b", "a"},
                    Case{"StartWithoutText", "", "a" + mark("start=20") + "b" + end,
                         "a" + mark("start=20") + "b"},
                    Case{"PlacesThatTouch", "", place + "a" + place + end, "a"},
                    Case{"PlacesWithin", "", "a" + place + "b" + end, "a" + place + "b"},
                    Case{"Running", "", "a\x1b[m", "a\x1b[m", false},
                    Case{"RunningInsideMark", "", "a\x1b]777;Velo", "a", false},
                    Case{"UnknownMarks", "", mark("what") + "a" + end, mark("what") + "a"},
                    Case{"FishPrelude", place, prelude + "\x1b[31ma" + end, "\x1b[31ma"},
                    Case{"FishWithoutTitle", place, "\x1b[30m\x1b(B\x1b[m\ra" + end, "\ra"},
                    Case{"FishPreludeAlone", place, prelude + end, ""},
                    Case{"FishPreludeCutShort", place, "\x1b[?2004l" + end, ""},
                    Case{"OtherShellsPrelude", mark("shell=zsh"), prelude + end, prelude}),
    [](const auto& tested) { return tested.param.name; });

TEST(CommandOutput, IsLostWithoutItsStartOrWithAGap) {
  const std::string stream = start + "abc";
  ByteQueue output;
  CommandOutput late(100);
  late.accept(bytesOf("abc"), 101, output);
  EXPECT_TRUE(late.isLost());
  CommandOutput absent(100);
  absent.accept(bytesOf(std::string(200, 'x')), 0, output);
  EXPECT_TRUE(absent.isLost());
  EXPECT_EQ(output.text(), "");
  CommandOutput cut(100);
  cut.accept(bytesOf("before a gap"), 0, output);
  cut.accept(bytesOf(stream), 100, output);
  EXPECT_FALSE(cut.isLost());
  cut.accept(bytesOf("more"), 101 + stream.size(), output);
  EXPECT_TRUE(cut.isLost());
  EXPECT_EQ(output.text(), "abc");
}

TerminalRuntimeCommandInfo command(std::uint64_t number, bool isRunning = false) {
  TerminalRuntimeCommandInfo info;
  info.markerOffset = number * 10;
  info.id = TerminalRuntimeCommandInfo::identity({}, info.markerOffset);
  if (!isRunning) info.state = TerminalCommandLifecycleState::succeeded;
  return info;
}

// The descriptions a follower meets: the number of the newest command, and whether it runs.
TEST(CommandHistory, TellsEveryCommandThoughDescriptionsSkipSome) {
  CommandHistory history;
  std::vector<std::pair<std::uint64_t, bool>> told;
  const auto older = [](std::uint64_t from, std::uint64_t to) {
    CommandHistory::Records found;
    for (std::uint64_t number = from / 10; number * 10 < to; ++number)
      found.push_back(KnownCommand::of(command(number)));
    return found;
  };
  for (const auto& [newest, isRunning] : std::vector<std::pair<std::uint64_t, bool>>{
           {20, true}, {20, true}, {20, false}, {22, true}, {40, true}, {50, false}}) {
    std::vector<TerminalRuntimeCommandInfo> latest;
    for (std::uint64_t number = newest - 7; number <= newest; ++number)
      latest.push_back(command(number, isRunning && number == newest));
    for (const KnownCommand& known : history.take({}, latest, older))
      told.emplace_back(known.markerOffset / 10, known.isRunning());
  }
  std::vector<std::pair<std::uint64_t, bool>> expected;
  for (std::uint64_t number = 13; number <= 50; ++number) {
    if (number == 20 || number == 22 || number == 40) expected.emplace_back(number, true);
    expected.emplace_back(number, false);
  }
  EXPECT_EQ(told, expected);
}

}  // namespace

}  // namespace velotide::client
