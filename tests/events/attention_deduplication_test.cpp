#include "events/attention_deduplication.h"

#include <gtest/gtest.h>

namespace velotide {
namespace {

using Kind = TerminalAttentionTerminalContext::Kind;

const Uuid tab = Uuid::random();

TerminalAttentionTerminalContext event(int number, Kind kind = Kind::commandFinished) {
  TerminalAttentionTerminalContext context;
  context.kind = kind;
  context.eventID.bytes = {std::uint8_t(number >> 8), std::uint8_t(number)};
  return context;
}

TEST(AttentionDeduplication, TellsEventsApartBySessionKindAndIdentifier) {
  TerminalAttentionDeduplication seen;
  const Uuid other = Uuid::random();
  EXPECT_TRUE(seen.insert(tab, event(1)));
  EXPECT_FALSE(seen.insert(tab, event(1)));
  EXPECT_TRUE(seen.insert(tab, event(1, Kind::processExited)));
  EXPECT_TRUE(seen.insert(other, event(1)));
  seen.remove(tab);
  EXPECT_TRUE(seen.contains(other, event(1)));
  EXPECT_FALSE(seen.contains(tab, event(1)));
  EXPECT_TRUE(seen.insert(tab, event(1)));
}

TEST(AttentionDeduplication, ForgetsTheOldestEventFirst) {
  TerminalAttentionDeduplication seen;
  for (int number = 0; number < 1024; ++number) seen.insert(tab, event(number));
  seen.insert(tab, event(0));  // a repetition makes nothing younger
  seen.insert(Uuid{}, event(0));
  EXPECT_FALSE(seen.contains(tab, event(0)));
  seen.remove(Uuid{});
  seen.insert(tab, event(1024));
  EXPECT_TRUE(seen.contains(tab, event(1)));
  seen.insert(tab, event(1025));
  EXPECT_FALSE(seen.contains(tab, event(1)));
  EXPECT_TRUE(seen.contains(tab, event(2)));
}

}  // namespace
}  // namespace velotide
