#include "terminal/reply_policy.h"

#include <gtest/gtest.h>

#include <string>

#include "support/random_text.h"

namespace velotide {
namespace {

struct Case {
  const char* name;
  std::string bytes;
  bool accepted;
};

class ReplyPolicyCases : public testing::TestWithParam<Case> {};
TEST_P(ReplyPolicyCases, Allows) {
  EXPECT_EQ(TerminalRuntimeReplyPolicy::allows(bytesOf(GetParam().bytes)), GetParam().accepted);
}

INSTANTIATE_TEST_SUITE_P(
    Replies, ReplyPolicyCases,
    testing::Values(Case{"CursorReport", "\x1b[12;40R", true},
                    Case{"TypedCharacterBehind", "\x1b[12;40Rx", false},
                    Case{"TypedCharacterBefore", "x\x1b[12;40R", false},
                    Case{"LineFeedBehind", "\x1b[12;40R\n", false}, Case{"Empty", "", false},
                    Case{"DeviceAttributes", "\x1b[?62;22c", true},
                    Case{"WindowReport", "\x1b[8;24;80t", true}, Case{"ArrowKey", "\x1b[A", false},
                    Case{"EightyParameters", "\x1b[" + std::string(80, '1') + "n", true},
                    Case{"EightyOneParameters", "\x1b[" + std::string(81, '1') + "n", false},
                    Case{"SixteenReports", repeat("\x1b[1;1R", 16), true},
                    Case{"SeventeenReports", repeat("\x1b[1;1R", 17), false},
                    Case{"ColourByBell", "\x1b]11;rgb:ffff/0000/1a1a\a", true},
                    Case{"ColourByTerminator", "\x1b]10;rgb:f/0/1\x1b\\", true},
                    Case{"FiveDigits", "\x1b]11;rgb:fffff/0/0\a", false},
                    Case{"ThreeDigitColour", "\x1b]104;rgb:f/f/f\a", false},
                    Case{"Graphics", "\x1b_Gi=31;OK\x1b\\", true},
                    Case{"GraphicsError", "\x1b_Gi=31;EINVAL\x1b\\", false},
                    Case{"Mixed", "\x1b[1;1R\x1b]10;rgb:f/0/1\a\x1b[0n", true},
                    Case{"InvalidUtf8", "\x1b[1\xff;1R", false},
                    Case{"TooLong", repeat("\x1b[" + std::string(70, ';') + "R", 15), false}),
    [](const auto& row) { return row.param.name; });

class MouseReportCases : public testing::TestWithParam<Case> {};
TEST_P(MouseReportCases, IsMouseReport) {
  EXPECT_EQ(TerminalMouseReportPolicy::isMouseReport(bytesOf(GetParam().bytes)), GetParam().accepted);
}

INSTANTIATE_TEST_SUITE_P(
    Reports, MouseReportCases,
    testing::Values(Case{"Classic", "\x1b[M !!", true}, Case{"ClassicHighBytes", "\x1b[M \xff\xfe", true},
                    Case{"ClassicLowByte", "\x1b[M \x1f!", false}, Case{"ClassicTwoBytes", "\x1b[M !", false},
                    Case{"ClassicUtf8", "\x1b[M \xc3\xa9\xc4\x80", true},
                    Case{"ClassicFourScalars", "\x1b[M \xc3\xa9!!", false},
                    Case{"Sgr", "\x1b[<0;10;5m", true}, Case{"SgrPress", "\x1b[<0;10;5M", true},
                    Case{"Decimal", "\x1b[0;10;5M", true}, Case{"DecimalRelease", "\x1b[0;10;5m", false},
                    Case{"OneByteIntroducer", "\x9b<0;1;1M", true}, Case{"NoIntroducer", "<0;1;1M", false},
                    Case{"TextBehind", "\x1b[<0;1;1Mx", false}, Case{"Empty", "", false},
                    Case{"TooLong", "\x1b[<" + std::string(70, '1') + ";1;1M", false}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace velotide
