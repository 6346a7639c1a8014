#include "events/event_log.h"

#include <gtest/gtest.h>

#include <string>

namespace velotide {
namespace {

using Error = TerminalEventReadError;
using Kind = TerminalSessionEventKind;

class EventLog : public testing::Test {
 protected:
  void publish(int count) {
    for (int each = 0; each < count; ++each)
      log.publish(tab, Kind::outputChanged, Date{}, {.revision = each});
  }
  std::optional<Error> failureOf(TerminalEventCursor after) const {
    try {
      log.read(after);
      return std::nullopt;
    } catch (const Failure<Error>& failure) {
      return failure.word;
    }
  }

  const Uuid epoch = Uuid::random();
  const Uuid tab = Uuid::random();
  TerminalSessionEventStore log{epoch};
};

TEST_F(EventLog, TellsLostForeignAndFutureCursorsApart) {
  EXPECT_EQ(failureOf({epoch, 0}), std::nullopt);
  EXPECT_EQ(failureOf({epoch, 1}), Error::futureCursor);
  EXPECT_EQ(failureOf({Uuid::random(), 1}), Error::appRestarted);
  publish(2000);
  EXPECT_EQ(failureOf({epoch, 976}), std::nullopt);
  EXPECT_EQ(failureOf({epoch, 975}), Error::cursorExpired);
  EXPECT_EQ(failureOf({epoch, 2000}), std::nullopt);
  EXPECT_EQ(log.read({epoch, 976}).events.front().cursor.sequence, 977U);
}

TEST_F(EventLog, PagesWithoutHolesOrRepetition) {
  publish(150);
  TerminalEventBatch batch = log.read({epoch, 0});
  EXPECT_EQ(batch.events.size(), 100U);
  EXPECT_TRUE(batch.hasMore);
  batch = log.read(batch.nextCursor);
  EXPECT_EQ(batch.events.size(), 50U);
  EXPECT_FALSE(batch.hasMore);
  EXPECT_EQ(batch.events.front().cursor.sequence, 101U);
  EXPECT_EQ(batch.events.front().revision, 100);
  EXPECT_EQ(log.read(batch.nextCursor).nextCursor, log.cursor());
}

TEST_F(EventLog, ClampsItsLimits) {
  publish(1500);
  for (const auto& [limit, expected] : {std::pair{-5, 1U}, {0, 1U}, {1, 1U}, {5000, 1024U}}) {
    EXPECT_EQ(log.read({epoch, 476}, limit).events.size(), expected) << limit;
  }
  TerminalSessionEventStore smallest(epoch, -3);
  for (int each = 0; each < 3; ++each) smallest.publish(tab, Kind::registered, Date{});
  EXPECT_EQ(smallest.read({epoch, 2}).events.size(), 1U);
  EXPECT_THROW(smallest.read({epoch, 1}), Failure<Error>);
}

TEST_F(EventLog, DeliversNestedEventsAfterTheCurrentOneToEveryObserver) {
  std::string order;
  log.observe([&](const TerminalSessionEvent& event) {
    order += "a" + std::to_string(event.cursor.sequence);
    if (event.cursor.sequence == 1) {
      log.publish(tab, Kind::closed, Date{});
      log.publish(tab, Kind::closed, Date{});
    }
  });
  log.observe(
      [&](const TerminalSessionEvent& event) { order += "b" + std::to_string(event.cursor.sequence); });
  log.publish(tab, Kind::registered, Date{});
  EXPECT_EQ(order, "a1b1a2b2a3b3");
}

TEST_F(EventLog, ObserversMayComeAndGoDuringADelivery) {
  int late = 0;
  int removed = 0;
  const Uuid first = log.observe([&](const TerminalSessionEvent&) { ++removed; });
  log.observe([&](const TerminalSessionEvent& event) {
    if (event.cursor.sequence != 1) return;
    log.removeObserver(first);
    log.observe([&](const TerminalSessionEvent&) { ++late; });
  });
  publish(2);
  EXPECT_EQ(removed, 1);
  EXPECT_EQ(late, 1);
  log.removeObserver(Uuid::random());
  EXPECT_EQ(log.observerCount(), 2U);
}

}  // namespace
}  // namespace velotide
