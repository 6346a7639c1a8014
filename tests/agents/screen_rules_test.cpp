#include "agents/screen_rules.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/repeated_text.h"

namespace velotide {
namespace {

using Kind = TerminalAgentKind;
using Rules = TerminalAgentScreenRules;

constexpr TerminalAgentScreenDetection approval{
    TerminalAgentActivity::blocked, TerminalAgentBlockReason::approval, TerminalAgentReason::screenApproval};
constexpr TerminalAgentScreenDetection nothing{TerminalAgentActivity::unknown, std::nullopt,
                                               TerminalAgentReason::unrecognizedScreen};

const std::string question = "Do you want to proceed?\n";
const std::string prompt = question + "❯ 1. Yes\n2. No\n";
constexpr std::size_t promptLength = 24 + 9 + 6;

TEST(ScreenRules, FindApprovalPromptsWhereverTheirLinesStand) {
  using Row = std::pair<std::string, TerminalAgentScreenDetection>;
  for (const auto& [screen, expected] :
       {Row{prompt, approval},
        Row{"2. No, tell me\n\n\n \t❯ 1. Yes\u3000\r\n\n  Do you want to proceed?", approval},
        Row{"Would you like to run the following command?\n› 1. Yes, proceed (y)\n3. No", approval},
        Row{"› 1. 是，继续 (y)\n3. 否，告诉它\n是否继续？", approval},
        Row{question + "❯ 1. 是\n2. 否", approval}, Row{question + "❯ 1. Yes", nothing},
        Row{"❯ 1. Yes\n2. No", nothing}, Row{question + "1. Yes\n2. No", nothing},
        Row{question + "❯ 1. Yes please\n2. No", nothing}, Row{question + "❯ 1. Yes\n2. No\u0301", nothing},
        Row{"do you want to proceed?\n❯ 1. Yes\n2. No", nothing},
        Row{question + "❯ 1. Yes\n2. N\u00F3", nothing},
        Row{"Do you want to proceed?\r\n❯ 1. Yes\r\n2. No\r\n", nothing}, Row{"", nothing}}) {
    EXPECT_EQ(Rules::detect(Kind::claude, screen), expected) << screen;
    EXPECT_EQ(Rules::detect(Kind::codex, screen), expected) << screen;
    EXPECT_EQ(Rules::detect(Kind::tesseral, screen), nothing) << screen;
  }
}

TEST(ScreenRules, LookNoFurtherBackThanTheirBounds) {
  const auto finds = [](const std::string& screen) {
    return Rules::detect(Kind::claude, screen) == approval;
  };
  EXPECT_TRUE(finds(prompt + repeat("x\n\n", 9)));
  EXPECT_FALSE(finds(prompt + repeat("x\n\n", 10)));
  // One character more cuts the first off the question, whatever a character is made of.
  const std::size_t room = Rules::maximumCharacters - promptLength;
  const std::string family = "👩\u200D👩\u200D👧\u200D👦";
  for (const std::string& filler : std::vector<std::string>{"x", "é", "e\u0301", family, "\r\n", "🇩🇪"}) {
    EXPECT_TRUE(finds(prompt + repeat(filler, room))) << filler;
    EXPECT_FALSE(finds(prompt + repeat(filler, room + 1))) << filler;
  }
  // A sign that joins what follows belongs to the first character of the tail.
  EXPECT_FALSE(finds("\u0600" + prompt + repeat("x", room)));
  EXPECT_TRUE(finds(repeat(family, 100'000) + "\n" + prompt));
  EXPECT_FALSE(finds(prompt + "e" + repeat("\u0301", Rules::maximumBytes)));
}

TEST(ScreenRules, KnowAgentsByTheLastComponentOfTheirPath) {
  using Row = std::pair<const char*, std::optional<Kind>>;
  for (const auto& [path, kind] :
       {Row{"/opt/codex", Kind::codex}, Row{"./tesseral//", Kind::tesseral}, Row{"/claude/run", std::nullopt},
        Row{"Claude", std::nullopt}, Row{"claude.exe", std::nullopt}, Row{"/", std::nullopt},
        Row{"", std::nullopt}})
    EXPECT_EQ(Rules::kind(path), kind) << path;
}

TEST(ScreenRules, TrustOnlyPlainLaunches) {
  for (const char* plain : {"claude", " \t/usr/bin/claude --model o -p\u00A0x ", "claude\u3000--helpful"})
    EXPECT_EQ(Rules::launchedKind(plain), Kind::claude) << plain;
  for (const char* other :
       {"codex --help", "codex\u3000--version", "claude -h", "claude | tee log", "claude;", "claude &",
        "claude `x`", "claude $HOME", "claude\n", "npx claude", "  ", ""})
    EXPECT_EQ(Rules::launchedKind(other), std::nullopt) << other;
}

}  // namespace
}  // namespace velotide
