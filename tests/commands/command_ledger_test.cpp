#include "commands/command_ledger.h"

#include <gtest/gtest.h>

#include "base/record.h"
#include "support/repeated_text.h"

namespace velotide {
namespace {

using State = TerminalCommandLifecycleState;

std::string mark(const std::string& payload) { return "\x1b]777;Velotide;" + payload + "\a"; }
const std::string makeStarts = mark("start=6d616b65");

class CommandLedger : public testing::Test {
 protected:
  // What changed, one word a record; time passes by a second with each call.
  std::string feed(const std::string& text) {
    std::string changes;
    now = now + 1;
    for (const auto& record : ledger.accept(bytesOf(text), offset, generation, now))
      changes += std::string(rawWord(record.state)) + " ";
    offset += text.size();
    return changes;
  }
  const TerminalRuntimeCommandInfo& last() const { return ledger.commands().back(); }
  const TerminalRuntimeCommandLedger::Evidence& evidence() const { return *ledger.evidence(last().id); }
  bool signalAfter(const std::string& output) {
    feed(makeStarts + output + mark("end=1"));
    return evidence().hasErrorSignal;
  }

  const Uuid generation = *Uuid::parse("00000000-0000-4000-8000-0000000000AB");
  TerminalRuntimeCommandLedger ledger;
  std::uint64_t offset = 0;
  Date now{1000};
};

TEST_F(CommandLedger, FollowsACommandFromStartToEnd) {
  EXPECT_EQ(feed(makeStarts + "out"), "running ");
  EXPECT_EQ(last().id, Uuid::parse("2051678A-7211-0314-7283-1836F2234017"));
  EXPECT_EQ(feed("put"), "");
  EXPECT_EQ(feed(mark("end=2")), "failed ");
  EXPECT_EQ(last().startedAt, Date{1001});
  EXPECT_EQ(last().endedAt, Date{1003});
  EXPECT_EQ(last().exitCode, 2);
  EXPECT_EQ(evidence(), (TerminalRuntimeCommandLedger::Evidence{makeStarts.size(), makeStarts.size() + 6}));
  EXPECT_EQ(feed(mark("end=0")), "") << "nothing runs any more";
  EXPECT_EQ(ledger.finish(State::completedUnknownStatus, {}, {}, now), std::nullopt);
  feed(makeStarts + "fatal");
  EXPECT_EQ(ledger.finish(State::completedUnknownStatus, {}, {}, now), last());
  EXPECT_EQ(last().state, State::completedUnknownStatus);
  EXPECT_TRUE(evidence().hasErrorSignal);
  EXPECT_EQ(evidence().outputEnd, std::nullopt);
}

TEST_F(CommandLedger, ReportsEachChangeInOrder) {
  const std::string others = mark("start=20") + mark("shell=sh") + mark("context=,,1,,");
  EXPECT_EQ(feed(mark("end=0") + others), "");
  EXPECT_EQ(feed(makeStarts + makeStarts), "running superseded running ");
  EXPECT_EQ(feed(others), "");
  EXPECT_EQ(feed(mark("end=0") + mark("start=6364") + "x" + mark("end=130") + mark("end=0")),
            "succeeded running failed ");
  EXPECT_TRUE(evidence().isLowInformation);
  const auto& superseded = ledger.commands().front();
  EXPECT_EQ(superseded.endedAt, ledger.commands()[1].startedAt);
  EXPECT_EQ(superseded.exitCode, std::nullopt);
  EXPECT_EQ(ledger.evidence(superseded.id)->outputEnd, ledger.commands()[1].markerOffset);
}

TEST_F(CommandLedger, ReadsTheEndOfTheVisibleOutput) {
  const std::size_t window = TerminalRuntimeCommandLedger::maximumActiveOutput;
  EXPECT_FALSE(signalAfter("fine"));
  EXPECT_TRUE(signalAfter("an er\x1b[31mror"));
  EXPECT_FALSE(signalAfter("\x1b]0;error\a"));
  EXPECT_TRUE(signalAfter("error" + repeat("x", window - 5)));
  EXPECT_FALSE(signalAfter("error" + repeat("x", window - 4)));
  EXPECT_TRUE(signalAfter("error" + repeat("\x1b[0m", 3 * window)));
  EXPECT_FALSE(signalAfter("error" + repeat("x\n", 5 * window)));
  EXPECT_TRUE(signalAfter("\x1bP" + mark("shell=sh") + "error")) << "a mark ends an open sequence";
  EXPECT_TRUE(signalAfter("\x1b[" + mark("end=none") + "m error"));
  feed("error" + makeStarts);
  EXPECT_FALSE(signalAfter("")) << "what came before the start is not the command's";
}

TEST_F(CommandLedger, KeepsTheLatestTwoHundred) {
  for (int count = 0; count < 201; ++count) feed(makeStarts);
  EXPECT_EQ(ledger.commands().size(), 200u);
  EXPECT_EQ(ledger.commands().front().markerOffset, makeStarts.size());
  EXPECT_EQ(ledger.evidence(TerminalRuntimeCommandInfo::identity(generation, 0)), nullptr);
  EXPECT_NE(ledger.evidence(ledger.commands().front().id), nullptr);
}

}  // namespace
}  // namespace velotide
