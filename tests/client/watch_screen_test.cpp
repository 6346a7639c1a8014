#include "client/watch_screen.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "client/cell_text.h"
#include "client/watch_keys.h"

namespace velotide::client {
namespace {

constexpr Date now{1000000};

Uuid uuid(std::uint8_t number) {
  Uuid id;
  id.bytes.fill(number);
  return id;
}

TerminalRuntimeSessionInfo session(std::uint8_t number, const std::string& directory = "/d") {
  TerminalRuntimeSessionInfo info;
  info.id = uuid(number);
  info.running = true;
  info.directory = directory;
  return info;
}

TerminalAttentionItem item(std::uint8_t number, TerminalAttentionKind kind, Seconds age) {
  TerminalAttentionItem made;
  made.tabID = uuid(number);
  made.kind = kind;
  made.createdAt = now + -age;
  return made;
}

TerminalAgentSnapshot agent(TerminalAgentActivity activity, Seconds age) {
  TerminalAgentSnapshot made;
  made.activity = activity;
  made.updatedAt = now + -age;
  return made;
}

TEST(CellText, ShowsNothingThatSteersATerminal) {
  const std::pair<std::string, std::string> cases[] = {
      {"/a\x1b[31mb\n\r\x7f", "/a?[31mb???"},
      {"c1 \xc2\x9b", "c1 ?"},
      {"bidi \xe2\x80\xae hidden", "bidi ? hidden"},
      {"zero\xe2\x80\x8bwidth", "zero?width"},
      {"line\xe2\x80\250end", "line?end"},
      {"heart \xe2\x9d\xa4\xef\xb8\x8f", "heart \xe2\x9d\xa4"},
      {"bad \xff\xc3", "bad \xef\xbf\xbd\xef\xbf\xbd"},
      {"e\u0301\u0301\u0301\u0301\u0301\u0301", "e\u0301\u0301\u0301\u0301"},
      {"日本 é ok", "日本 é ok"},
  };
  for (const auto& [text, shown] : cases) EXPECT_EQ(shownText(text), shown);
}

TEST(CellText, CutsByCells) {
  const std::tuple<std::string, std::size_t, std::string, std::string> cases[] = {
      {"abcdef", 4, "abc…", "…def"},   {"日本語", 6, "日本語", "日本語"},
      {"日本語", 5, "日本…", "…本語"}, {"日本語", 0, "", ""},
      {"xe\u0301", 1, "…", "…"},       {"ye\u0301zz", 3, "ye\u0301…", "…zz"}};
  for (const auto& [text, cells, beginning, end] : cases) {
    EXPECT_EQ(keepBeginning(text, cells), beginning);
    EXPECT_EQ(keepEnd(text, cells), end) << text << cells;
  }
}

TEST(WatchScreen, DurationsTakeTheLargestUnitThatTells) {
  const std::pair<Seconds, std::string> cases[] = {
      {-5, "0s"},   {0.9, "0s"},     {59.9, "59s"},  {60, "1m"},       {3599, "59m"},
      {3600, "1h"}, {172799, "47h"}, {172800, "2d"}, {8.64e9, "999d"},
  };
  for (const auto& [length, text] : cases) EXPECT_EQ(shortDuration(length), text);
}

TEST(WatchedSessions, ThoseThatNeedThePersonComeFirst) {
  WatchedSessions sessions;
  std::vector<TerminalRuntimeSessionInfo> infos;
  for (std::uint8_t number = 1; number <= 5; ++number) infos.push_back(session(number));
  TerminalRuntimeCommandInfo command;
  command.startedAt = now + -50;
  infos[1].commands = {command};
  command.endedAt = now + -20;
  command.state = TerminalCommandLifecycleState::failed;
  command.exitCode = 2;
  for (const std::size_t with : {0U, 3U}) infos[with].commands = {command};
  infos[0].running = false;
  infos[0].exitStatus = 3;
  sessions.noteExit(infos[0].id, now + -9);
  infos[3].agent = infos[4].agent = agent(TerminalAgentActivity::working, 100);
  sessions.takeSessions(infos);
  infos[3].agent = agent(TerminalAgentActivity::idle, 5);
  infos[4].agent = agent(TerminalAgentActivity::working, 10);  // reported again, and it lasts
  sessions.takeSessions(infos);
  TerminalAttentionItem seen = item(3, TerminalAttentionKind::question, 90);
  seen.readAt = now;
  TerminalAttentionItem bell = item(2, TerminalAttentionKind::bell, 30);
  bell.terminal.emplace().occurrences = 4;
  sessions.takeAttention(
      {item(5, TerminalAttentionKind::approval, 5), seen, bell, item(5, TerminalAttentionKind::bell, 300)});
  const std::vector<WatchLine> lines = layOut(sessions.rows(), {uuid(3), false, "", ""}, {80, 24}, now);
  const std::string expected[] = {
      "velotide: 5 sessions, 2 need an answer, 1 with news",
      "  SESSION   ATTENTION           AGENT               COMMAND       DIRECTORY",
      " !05050505  approval +1     5s  claude working  1m  running       /d",
      ">!03030303  question, seen  1m  -                   running       /d",
      " *02020202  bell x4        30s  -                   running  50s  /d",
      "  04040404  -                   claude idle     5s  failed 2 20s  /d",
      "  01010101  -                   -                   exited 3  9s  /d",
  };
  for (std::size_t row = 0; row < std::size(expected); ++row)
    EXPECT_EQ(lines[row].text.substr(0, lines[row].text.find_last_not_of(' ') + 1), expected[row]);
  EXPECT_EQ(sessions.firstUnread(uuid(5))->kind, TerminalAttentionKind::approval);
  EXPECT_EQ(sessions.firstUnread(uuid(3)), nullptr);
}

// Every size: no line wider than the screen, exactly its height, the selected session on it, nothing raw.
TEST(WatchScreen, FitsEverySize) {
  WatchedSessions sessions;
  std::vector<TerminalRuntimeSessionInfo> infos;
  for (std::uint8_t number = 1; number <= 64; ++number)
    infos.push_back(session(number, "/\x1b]0;evil\a/日本語/\xc2\x9b" + std::string(200, 'x') + "/end"));
  infos[40].agent = agent(TerminalAgentActivity::blocked, 700);
  infos[40].agent->blockReason = TerminalAgentBlockReason::approval;
  infos[40].controlOwner = "evil\x1b[2J";
  sessions.takeSessions(infos);
  for (const WindowSize size : {WindowSize{80, 24}, {20, 5}, {200, 60}, {1, 1}, {7, 2}, {33, 8}, {1000, 1}}) {
    for (const bool asks : {false, true}) {
      const std::vector<WatchLine> lines = layOut(sessions.rows(), {uuid(41), asks, "", ""}, size, now);
      ASSERT_EQ(lines.size(), static_cast<std::size_t>(size.rows));
      EXPECT_EQ(std::ranges::count(lines, true, &WatchLine::isSelected), 1);
      std::string text;
      for (const WatchLine& line : lines) {
        EXPECT_LE(cellsOf(line.text), static_cast<std::size_t>(size.columns));
        text += line.text + "\n";
      }
      const auto shows = [&](std::string_view part) { return text.find(part) != std::string::npos; };
      EXPECT_FALSE(shows("\x1b") || shows("\xc2\x9b"));
      const bool isLarge = size.columns >= 20 && size.rows >= 5;
      EXPECT_TRUE(!isLarge || shows("> 29292929")) << text;
      EXPECT_EQ(shows("Close 29292929"), isLarge && asks) << text;
      EXPECT_TRUE(size.columns < 80 || size.rows < 24 || shows("claude blocked: approval")) << text;
    }
  }
}

TEST(WatchKeys, TellsKeysFromOtherSequences) {
  using enum WatchKey;
  const std::pair<std::string, std::vector<WatchKey>> cases[] = {
      {"jk\r", {down, up, attach}},
      {"\x1b[A\x1bOB\x1b[5~", {up, down, pageUp}},
      {"\x1b[1;5xx", {other, close}},
      {"\x1b[200~", {other}},
      {"\x1b", {other}},
      {"\x1bq", {other}},
      {"\x03\x1a", {quit, suspend}},
  };
  for (const auto& [bytes, keys] : cases) EXPECT_EQ(watchKeys(bytes), keys) << testing::PrintToString(bytes);
}

}  // namespace
}  // namespace velotide::client
