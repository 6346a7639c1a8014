#include "events/attention_deduplication.h"

#include <gtest/gtest.h>

namespace velotide {
namespace {

const Uuid tab = Uuid::random();

TerminalAttentionTerminalContext event(int number) {
  TerminalAttentionTerminalContext context;
  context.eventID.bytes = {std::uint8_t(number >> 8), std::uint8_t(number)};
  return context;
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
