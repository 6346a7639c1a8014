#include "terminal/reply_policy.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/repeated_text.h"

namespace velotide {
namespace {

using Texts = std::vector<std::string>;

TEST(ReplyPolicyCases, Allows) {
  const auto allows = [](const std::string& text) {
    return TerminalRuntimeReplyPolicy::allows(bytesOf(text));
  };
  // Reports of the cursor, the device, the window and colours, and a graphics answer, alone and together.
  for (const std::string& reply :
       Texts{"\x1b[12;40R", "\x1b[?62;22c", "\x1b[8;24;80t", "\x1b]11;rgb:ffff/0000/1a1a\a",
             "\x1b]10;rgb:f/0/1\x1b\\", "\x1b_Gi=31;OK\x1b\\", "\x1b[1;1R\x1b]10;rgb:f/0/1\a\x1b[0n",
             "\x1b[" + std::string(80, '1') + "n", repeat("\x1b[1;1R", 16)})
    EXPECT_TRUE(allows(reply)) << reply;
  // Keys and text around a report, colours and graphics that no terminal answers, too many, too long.
  for (const std::string& other :
       Texts{"", "\x1b[12;40Rx", "x\x1b[12;40R", "\x1b[12;40R\n", "\x1b[A", "\x1b]11;rgb:fffff/0/0\a",
             "\x1b]104;rgb:f/f/f\a", "\x1b_Gi=31;EINVAL\x1b\\", "\x1b[1\xff;1R",
             "\x1b[" + std::string(81, '1') + "n", repeat("\x1b[1;1R", 17),
             repeat("\x1b[" + std::string(70, ';') + "R", 15)})
    EXPECT_FALSE(allows(other)) << other;
}

TEST(MouseReportCases, IsMouseReport) {
  const auto isReport = [](const std::string& text) {
    return TerminalMouseReportPolicy::isMouseReport(bytesOf(text));
  };
  for (const char* report : {"\x1b[M !!", "\x1b[M \xff\xfe", "\x1b[M \xc3\xa9\xc4\x80", "\x1b[<0;10;5m",
                             "\x1b[<0;10;5M", "\x1b[0;10;5M", "\x9b<0;1;1M"})
    EXPECT_TRUE(isReport(report)) << report;
  for (const char* other :
       {"", "\x1b[M \x1f!", "\x1b[M !", "\x1b[M \xc3\xa9!!", "\x1b[0;10;5m", "<0;1;1M", "\x1b[<0;1;1Mx"})
    EXPECT_FALSE(isReport(other)) << other;
  EXPECT_FALSE(isReport("\x1b[<" + std::string(70, '1') + ";1;1M"));
}

}  // namespace
}  // namespace velotide
