// The pieces that read terminal streams: the scanner beneath them, modes, questions and typed keys.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "client/past_output.h"
#include "client/plain_input.h"
#include "client/sequence_scanner.h"
#include "client/terminal_modes.h"
#include "client/terminal_questions.h"
#include "client/trouble.h"
#include "client/typed_input.h"
#include "support/random_text.h"

namespace velotide::client {

namespace {

using Kind = SessionInput::Kind;

std::string scanned(std::vector<std::string_view> chunks) {
  SequenceScanner scanner;
  std::string seen;
  for (const std::string_view chunk : chunks) {
    scanner.scan(
        chunk, [&](std::string_view text) { seen += text; },
        [&](std::string_view sequence) { seen += "<" + std::string(sequence.substr(1)) + ">"; });
  }
  return seen + scanner.takeHeld();
}

TEST(SequenceScanner, FindsTheSameSequencesInEverySplit) {
  const std::string stream =
      "a\x1b[1;2mb\x1b]0;title\a\x1b]8;;x\x1b\\c\x1bP1$r\x1b\\\x1b(B\x1b[5\x18"
      "d\x1b[3\x1b[4m\x1b]un\x1b[5me";
  const std::string expected =
      "a<[1;2m>b<]0;title\a><]8;;x\x1b\\>c<P1$r\x1b\\><(B>\x1b[5\x18"
      "d\x1b[3<[4m>\x1b]un<[5m>e";
  for (std::size_t one = 0; one <= stream.size(); ++one) {
    for (std::size_t two = one; two <= stream.size(); ++two) {
      const std::string_view text = stream;
      EXPECT_EQ(expected, scanned({text.substr(0, one), text.substr(one, two - one), text.substr(two)}));
    }
  }
}

TEST(SequenceScanner, LetsThroughWhatIsTooLongToHold) {
  const std::string image = "\x1bP" + std::string(3 * SequenceScanner::maximumSequence, 'q') + "\x1b\\";
  EXPECT_EQ(image + "a<[m>", scanned({image + "a\x1b[m"}));
  EXPECT_EQ(image + "a<[m>", scanned({std::string_view(image).substr(0, 9000),
                                      std::string_view(image).substr(9000), "a\x1b[m"}));
}

struct ModeCase {
  const char* output;
  const char* off;
};

TEST(TerminalModes, SwitchesOffWhatIsOnAndNothingElse) {
  const ModeCase cases[] = {
      {"plain\r\n\x1b[2J\x1b[H", ""},
      {"\x1b[?1049h\x1b[?25l", "\x1b[?1049l\x1b[?25h"},
      {"\x1b[?1049h\x1b[?25l\x1b[?25h\x1b[?1049l", ""},
      {"\x1b[?1000;1006h", "\x1b[?1000l\x1b[?1006l"},
      {"\x1b[?2004h\x1b[?1004h\x1b[?1h\x1b=", "\x1b>\x1b[?1l\x1b[?1004l\x1b[?2004l"},
      {"\x1b[?7l", "\x1b[?7h"},
      {"\x1b[>1u\x1b[?1049h\x1b[>5u\x1b[>5u\x1b[<u", "\x1b[<1u\x1b[?1049l\x1b[<1u"},
      {"\x1b[=3;1u", "\x1b[=0u"},
      {"\x1b[?1u\x1b[?2004$p\x1b[?25$p", ""},
      {"\x1b[1;31m", "\x1b[m"},
      {"\x1b[1;31mred\x1b[0m\x1b[39;49m\x1b[27m", ""},
      {"\x1b[7mx\x1b[39m", "\x1b[m"},
      {"\x1b[3;20r",
       "\x1b"
       "7\x1b[r\x1b"
       "8"},
      {"\x1b[4 q\x1b[>4;2m", "\x1b[0 q\x1b[>4m"},
      {"\x1b[?1049h\x1b[?1003h\x1b"
       "c",
       ""},
      {"\x1b[?25l\x1b[4h\x1b[!p", ""},
  };
  for (const ModeCase& row : cases) {
    const std::string_view output = row.output;
    for (std::size_t split = 0; split <= output.size(); ++split) {
      TerminalModes modes;
      modes.observe(output.substr(0, split));
      modes.observe(output.substr(split));
      EXPECT_EQ(row.off, modes.switchOff()) << output << " split at " << split;
    }
  }
}

struct KindCase {
  const char* sequence;
  Kind kind;
};

TEST(Answers, AreToldFromKeys) {
  const KindCase cases[] = {
      {"\x1b[12;40R", Kind::reply},
      {"\x1b[?62;1;4c", Kind::reply},
      {"\x1b[>41;354;0c", Kind::reply},
      {"\x1b[0n", Kind::reply},
      {"\x1b[8;24;80t", Kind::reply},
      {"\x1b[1;2R", Kind::typed},
      {"\x1b]11;rgb:0/ff/ffff\a", Kind::reply},
      {"\x1b]4;1;rgb:0/0/0\a", Kind::otherReply},
      {"\x1b]10;rgb:00000/0/0\x1b\\", Kind::otherReply},
      {"\x1b_Gi=31;OK\x1b\\", Kind::reply},
      {"\x1b_Gi=31;EINVAL\x1b\\", Kind::otherReply},
      {"\x1bP>|term 1\x1b\\", Kind::otherReply},
      {"\x1b[?2004;2$y", Kind::otherReply},
      {"\x1b[?1u", Kind::otherReply},
      {"\x1b[97;5u", Kind::typed},
      {"\x1b[A", Kind::typed},
      {"\x1b[<0;3;4M", Kind::typed},
      {"\x1b[I", Kind::typed},
      {"\x1b[R", Kind::typed},
      {"\x1b[=6c", Kind::typed},
      {"\x1bP", Kind::typed},
  };
  for (const KindCase& row : cases) EXPECT_EQ(row.kind, kindOfSequence(row.sequence)) << row.sequence + 1;
}

std::string past(std::string_view output, std::size_t cut) {
  PastOutput past;
  std::string shown = past.filter(output.substr(0, cut));
  shown += past.filter(output.substr(cut));
  return shown;
}

TEST(PastOutput, ShowsWhatDrawsAndNothingElse) {
  const std::string filling(2 * SequenceScanner::maximumSequence, '0');
  const std::pair<std::string, std::string> cases[] = {
      {"a\x1b[6nb\x1b[c\x1b[1mc\a\x1b]11;?\x1b\\\x1b]52;c;eA==\ad", "ab\x1b[1mcd"},
      {"\x1b[>q\x1b[?u\x1b[18t\x1b[2t\x1bP+q\x1b\\\x1b[?2026$p\x1b[?2048h\x1bZ\x05", ""},
      {"\x1b[1*y\x1b[?1;1;0S\x1b[?4m\x1b[5i\x1bP@command{}\x1b\\\x1b^x\x1b\\", ""},
      {"\x1b]9;x\a\x1b]777;notify;x\a\x1b]1337;Copy=x\a\x1b]21;foreground=?\x1b\\", ""},
      {"\x1b_Gi=1,a=T;eA==\x1b\\\x1b_Ga=q,q=2;\x1b\\\x1b_Ga=T,q=2,i=1;eA==\x1b\\",
       "\x1b_Ga=T,q=2,i=1;eA==\x1b\\"},
      {"\x1b]0;t\a\x1b]8;;http://x?y\a\x1b[?1049h\x1b[>4;1m\x1b(0\x1b"
       "7\x1b[2 q\x1b[22;0t",
       "\x1b]0;t\a\x1b]8;;http://x?y\a\x1b[?1049h\x1b[>4;1m\x1b(0\x1b"
       "7\x1b[2 q\x1b[22;0t"},
      // Read in one way here and in another one there.
      {"\x1b[\x05"
       "c\x1b\x05[c\x1b]5\x01"
       "2;c;eA==\a\x1b[\x7f"
       "6n",
       "[c"},
      {"\x1b]52;c;eA==\x1b[m\x1b]11;?\x18", "\x1b[m"},
      {"\x1b[6\x1b[6nn\x1b\x1bZZ", "nZ"},
      {"\xc2\x9b"
       "6n\xc2\a\x9b"
       "6n\x1b]0;t\xc2\x9c\xc2\x9b"
       "c\aé",
       "\xc2?6n\xc2?6né"},
      // Too long to be held.
      {"\x1b[" + filling + "c.\x1b]52;c;" + filling + "\a.\x1bPq" + filling + "\x1b\\.",
       "..\x1bPq" + filling + "\x1b\\."},
      {"\x1b]0;" + filling + "\x1b[c\x1b]0;" + filling + "\x1b[m", "\x1b[m"},
      {"\x1bPq" + filling + "\x1b[6nx\x1bPq" + filling + "\x1b[3\x18x",
       "\x1bPq" + filling + "\x18x\x1bPq" + filling + "\x18x"},
  };
  for (const auto& [output, shown] : cases) {
    for (std::size_t cut = 0; cut <= output.size(); cut += output.size() > 1000 ? 509 : 1)
      ASSERT_EQ(shown, past(output, cut)) << output.substr(1, 100) << " cut at " << cut;
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
}

TEST(TypedInput, SeesTheDetachKeyInEveryFormButNotInAPaste) {
  for (const char* detaching : {"ab\x1c"
                                "cd",
                                "ab\x1b[92;5ucd", "ab\x1b[92;69:1u", "ab\x1b[27;5;92~cd"}) {
    TypedInput input(DetachKey::named("^\\"));
    EXPECT_EQ("T:ab ", taken(input, detaching));
    EXPECT_TRUE(input.wantsDetach());
  }
  for (const char* typed : {"ab\x1d", "\x1b[92;6u", "\x1b[92;5:3u",
                            "\x1b[200~a\x1c"
                            "b\x1b[201~",
                            "\x1b[60;5u"}) {
    TypedInput input(DetachKey::named("ctrl-\\"));
    taken(input, typed);
    EXPECT_FALSE(input.wantsDetach()) << typed;
  }
}

TEST(KeyNames, AreReadAsPeopleWriteThem) {
  const std::pair<const char*, const char*> cases[] = {{"ctrl-c", "\x03"},  {"^C", "\x03"},  {"C-g", "\a"},
                                                       {"ctrl+\\", "\x1c"}, {"Enter", "\r"}, {"up", "\x1b[A"},
                                                       {"x", "x"}};
  for (const auto& [name, bytes] : cases) EXPECT_EQ(bytes, bytesOfKey(name)) << name;
  EXPECT_FALSE(bytesOfKey("ctrl-"));
  EXPECT_FALSE(bytesOfKey("nokey"));
  EXPECT_EQ("Ctrl-G", DetachKey::named("^g").name());
  EXPECT_THROW(DetachKey::named("q"), Trouble);
  EXPECT_THROW(DetachKey::named(""), Trouble);
}

TEST(PlainInput, QuotesControlCharactersAndHandsOverLongLines) {
  PlainInput input;
  EXPECT_EQ("a\tb\n\x16\x03\x16\r\xff", input.encode("a\tb\n\x03\r\xff"));
  EXPECT_EQ("\x04\x04", input.end());
  EXPECT_EQ("\n", input.encode("\n"));
  EXPECT_EQ("\x04", input.end());
  const std::string keys =
      input.encode(repeat("y", 1000)) + input.encode("\n") + input.encode(repeat("y", 2500));
  EXPECT_EQ(
      repeat("y", 1000) + "\n" + repeat("y", 1000) + "\x04" + repeat("y", 1000) + "\x04" + repeat("y", 500),
      keys);
}

}  // namespace

}  // namespace velotide::client
