// The pieces that read terminal streams: modes, questions and typed keys, and with them the scanner beneath.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "client/past_output.h"
#include "client/sequence_scanner.h"
#include "client/terminal_modes.h"
#include "client/terminal_questions.h"
#include "client/trouble.h"
#include "client/typed_input.h"

namespace velotide::client {

namespace {

using Kind = SessionInput::Kind;

TEST(TerminalModes, SwitchesOffWhatIsOnAndNothingElse) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain\r\n\x1b[2J\x1b[H", ""},
      {"\x1b[?1049h\x1b[?25l", "\x1b[?1049l\x1b[?25h"},
      {"\x1b[?1049h\x1b[?25l\x1b[?25h\x1b[?1049l", ""},
      {"\x1b[?1000;1006h", "\x1b[?1000l\x1b[?1006l"},
      {"\x1b[?2004h\x1b[?1004h\x1b[?1h\x1b=", "\x1b>\x1b[?1l\x1b[?1004l\x1b[?2004l"},
      {"\x1b[>1u\x1b[?1049h\x1b[>5u\x1b[>5u\x1b[<u", "\x1b[<1u\x1b[?1049l\x1b[<1u"},
      {"\x1b[=3;1u", "\x1b[=0u"},
      {"\x1b[?1u\x1b[?2004$p\x1b[?25$p", ""},
      {"\x1b[1;31mred\x1b[0m\x1b[39;49m\x1b[27m", ""},
      {"\x1b[7mx\x1b[39m", "\x1b[m"},
      {"\x1b[38;2;255;128;0m", "\x1b[m"},
      {"\x1b[58:2::1:2:0m", "\x1b[m"},
      {"\x1b[38;5;1;48;2;1;2;3;0m", ""},
      {"\x1b[3;20r", "\0337\x1b[r\0338"},
      {"\x1b[4 q\x1b[>4;2m", "\x1b[0 q\x1b[>4m"},
      {"\x1b[?1049h\x1b[?1003h\033c", ""},
      {"\x1b[?25l\x1b[4h\x1b[!p", ""},
      {"\x1b[2;20h\x1b[4;12l", "\x1b[2l\x1b[12h\x1b[20l"},
      {"\x1b)0\x0eqq\x1b(0", "\x0f\x1b(B\x1b)B"},
      {"a\x0e\x0f\x0e.\x0f\x1b)0\x1b)B", ""},
      {"\x1b[?3;12;9001h\x1b[?8;1007l", "\x1b[?3l\x1b[?8h\x1b[?12l\x1b[?1007h\x1b[?9001l"},
  };
  for (const auto& [output, off] : cases) {
    for (std::size_t split = 0; split <= output.size(); ++split) {
      TerminalModes modes;
      modes.observe(output.substr(0, split));
      modes.observe(output.substr(split));
      EXPECT_EQ(off, modes.switchOff()) << output << " split at " << split;
    }
  }
}

TEST(Answers, AreToldFromKeys) {
  const std::pair<Kind, std::vector<std::string>> cases[] = {
      {Kind::reply,
       {"[12;40R", "[?62;1;4c", "[>41;354;0c", "[0n", "[8;24;80t", "]11;rgb:0/ff/ffff\a", "_Gi=31;OK\x1b\\"}},
      {Kind::otherReply,
       {"]4;1;rgb:0/0/0\a", "]10;rgb:00000/0/0\x1b\\", "_Gi=31;EINVAL\x1b\\", "P>|term 1\x1b\\", "[?2004;2$y",
        "[?1u"}},
      {Kind::typed, {"[1;2R", "[97;5u", "[A", "[<0;3;4M", "[I", "[R", "[=6c", "P"}},
  };
  for (const auto& [kind, sequences] : cases)  // each behind its ESC
    for (const std::string& each : sequences) EXPECT_EQ(kind, kindOfSequence("\x1b" + each)) << each;
}

TEST(PastOutput, ShowsWhatDrawsAndNothingElse) {
  const std::string drawing =
      "\x1b]0;t\a\x1b]8;;http://x?y\a\x1b[?1049h\x1b[>4;1m\x1b(0\0337\x1b[2 q\x1b[22;0t";
  const std::string filling(2 * SequenceScanner::maximumSequence, '0');
  const std::pair<std::string, std::string> cases[] = {
      {"a\x1b[6nb\x1b[c\x1b[1mc\a\x1b]11;?\x1b\\\x1b]52;c;eA==\ad", "ab\x1b[1mcd"},
      {"\x1b[>q\x1b[?u\x1b[18t\x1b[2t\x1bP+q\x1b\\\x1b[?2026$p\x1b[?2048h\x1bZ\x05", ""},
      {"\x1b[1*y\x1b[?1;1;0S\x1b[?4m\x1b[5i\x1bP@command{}\x1b\\\x1b^x\x1b\\", ""},
      {"\x1b]9;x\a\x1b]777;notify;x\a\x1b]1337;Copy=x\a\x1b]21;foreground=?\x1b\\", ""},
      {"\x1b_Gi=1,a=T;eA==\x1b\\\x1b_Ga=q,q=2;\x1b\\\x1b_Ga=T,q=2,i=1;eA==\x1b\\",
       "\x1b_Ga=T,q=2,i=1;eA==\x1b\\"},
      {"\x1b_Gq=2,q=0,i=1,a=T;eA==\x1b\\\x1b_Ga=T,t=t;eA==\x1b\\\x1b[?4294969344h\x1bPq\a\x1b\\.", "."},
      {"\x1b[2h\x1b[4;12l\x1b[20h\x1b[2J", "\x1b[20h\x1b[2J"},
      {drawing, drawing},
      // Read in one way here and in another one there.
      {"\x1b[\005c\x1b\x05[c\x1b]5\0012;c;eA==\a\x1b[\1776n", "[c"},
      {"\x1b]52;c;eA==\x1b[m\x1b]11;?\x18", "\x1b[m"},
      {"\x1b[6\x1b[6nn\x1b\x1bZZ", "nZ"},
      {"\xc2\2336n\xc2\a\2336n\x1b]0;t\xc2\x9c\xc2\233c\aé", "\xc2?6n\xc2?6né"},
      // Too long to be held.
      {"\x1b[" + filling + "c.\x1b]52;c;" + filling + "\a.\x1bPq" + filling + "\a\x1b\\.",
       "..\x1bPq" + filling + "\x1b\\."},
      {"\x1b]0;" + filling + "\x1b[c\x1b]0;" + filling + "\x1b[m", "\x1b[m"},
      {"\x1bPq" + filling + "\x1b[6nx\x1bPq" + filling + "\x1b[3\x18x",
       "\x1bPq" + filling + "\x18x\x1bPq" + filling + "\x18x"},
  };
  for (const auto& [output, shown] : cases) {
    for (std::size_t cut = 0; cut <= output.size(); cut += output.size() > 1000 ? 509 : 1) {
      PastOutput past;
      const std::string first = past.filter(output.substr(0, cut));
      ASSERT_EQ(shown, first + past.filter(output.substr(cut))) << output.substr(1, 100) << " cut at " << cut;
    }
  }
  PastOutput half;
  EXPECT_EQ("a", half.filter("a\x1b["));
  EXPECT_EQ("\x1b[", half.rest());
}

std::string taken(TypedInput& input, std::string_view bytes, Uptime at = {}) {
  std::string seen;
  for (const TypedInput::Piece& piece : input.take(bytes, at))
    seen += (piece.kind == Kind::typed ? "T:" : "R:") + piece.bytes.substr(piece.bytes[0] == '\x1b') + " ";
  return seen;
}

TEST(TypedInput, PassesKeysAtOnceAndAnswersApart) {
  TypedInput input(DetachKey::named("none"));
  EXPECT_EQ("T:ab ", taken(input, "ab"));
  EXPECT_EQ("T: ", taken(input, "\x1b"));
  EXPECT_EQ("T:[A ", taken(input, "\x1b[A"));
  EXPECT_EQ("T:x R:[5;5R R:[0n T:y ", taken(input, "x\x1b[5;5R\x1b[0ny"));
  EXPECT_EQ("", taken(input, "\x1b[5;"));
  EXPECT_EQ("R:[5;5R ", taken(input, "5R", Uptime{0.02}));
  EXPECT_EQ("", taken(input, "\x1b[5;"));
  EXPECT_TRUE(input.expire(Uptime{0.01}).empty());
  EXPECT_EQ(1U, input.expire(*input.heldUntil()).size());
  EXPECT_EQ("T:5R ", taken(input, "5R"));
  EXPECT_EQ("T:a\x1b[5\030d\x1b[3\x1b[4m ", taken(input, "a\x1b[5\030d\x1b[3\x1b[4m"));
}

TEST(TypedInput, SeesTheDetachKeyInEveryFormButNotInAPaste) {
  for (const char* detaching : {"ab\034cd", "ab\x1b[92;5ucd", "ab\x1b[92;69:1u", "ab\x1b[27;5;92~cd"}) {
    TypedInput input(DetachKey::named("^\\"));
    EXPECT_EQ("T:ab ", taken(input, detaching));
    EXPECT_TRUE(input.wantsDetach());
  }
  for (const char* typed :
       {"ab\x1d", "\x1b[92;6u", "\x1b[92;5:3u", "\x1b[200~a\034b\x1b[201~", "\x1b[60;5u"}) {
    TypedInput input(DetachKey::named("ctrl-\\"));
    taken(input, typed);
    EXPECT_FALSE(input.wantsDetach()) << typed;
  }
}

TEST(KeyNames, AreReadAsPeopleWriteThem) {
  const std::pair<const char*, const char*> cases[] = {
      {"ctrl-c", "\x03"},     {"^C", "\x03"}, {"C-g", "\a"}, {"ctrl+\\", "\x1c"}, {"Enter", "\r"},
      {"up", "\x1b[A"},       {"x", "x"},     {"é", "é"},    {"alt-X", "\x1bX"},  {"F1", "\x1bOP"},
      {"Shift-Tab", "\x1b[Z"}};
  for (const auto& [name, bytes] : cases) EXPECT_EQ(bytes, bytesOfKey(name)) << name;
  for (const char* name : {"ctrl-", "nokey", "alt-", "alt-up"}) EXPECT_FALSE(bytesOfKey(name)) << name;
  EXPECT_EQ("Ctrl-G", DetachKey::named("^g").name());
  for (const char* name : {"q", ""}) EXPECT_THROW(DetachKey::named(name), Trouble) << name;
}

}  // namespace

}  // namespace velotide::client
