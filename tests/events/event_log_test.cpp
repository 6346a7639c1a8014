#include "events/event_log.h"

#include <gtest/gtest.h>

#include <new>
#include <string>

#include "base/failure.h"

namespace velotide {
namespace {

using Error = TerminalEventReadError;
using Kind = TerminalSessionEventKind;

class EventLog : public testing::Test {
 protected:
  void publish(int count) {
    while (count-- > 0) log.publish(tab, Kind::outputChanged, Date{});
  }

  const Uuid epoch = Uuid::random();
  const Uuid tab = Uuid::random();
  TerminalSessionEventStore log{epoch};
};

TEST_F(EventLog, TellsLostForeignAndFutureCursorsApart) {
  EXPECT_EQ(log.readError({epoch, 0}), std::nullopt);
  EXPECT_EQ(log.readError({epoch, 1}), Error::futureCursor);
  EXPECT_EQ(log.readError({Uuid::random(), 1}), Error::appRestarted);
  publish(2000);
  EXPECT_EQ(log.readError({epoch, 976}), std::nullopt);
  EXPECT_EQ(log.readError({epoch, 975}), Error::cursorExpired);
  EXPECT_EQ(log.readError({epoch, 2000}), std::nullopt);
  EXPECT_THROW(log.read({epoch, 975}), Failure<Error>);
}

TEST_F(EventLog, PagesWithoutHolesOrRepetitionWithinItsLimits) {
  publish(1500);
  for (const auto& [limit, expected] : {std::pair{-5, 1U}, {0, 1U}, {1, 1U}, {5000, 1024U}})
    EXPECT_EQ(log.read({epoch, 476}, limit).events.size(), expected) << limit;
  TerminalEventBatch batch = log.read({epoch, 1350});
  EXPECT_EQ(batch.events.size(), 100U);
  EXPECT_TRUE(batch.hasMore);
  batch = log.read(batch.nextCursor);
  EXPECT_EQ(batch.events.size(), 50U);
  EXPECT_FALSE(batch.hasMore);
  EXPECT_EQ(batch.events.front().cursor.sequence, 1451U);
  EXPECT_EQ(log.read(batch.nextCursor).nextCursor, log.cursor());
}

TEST_F(EventLog, AnObserverThatFailsEndsTheProcessInsteadOfTheDelivery) {
  log.observe([](const TerminalSessionEvent&) { throw std::bad_alloc(); });
  EXPECT_DEATH(publish(1), "");
}

TEST_F(EventLog, DeliversNestedEventsAfterTheCurrentOneToEveryObserver) {
  std::string order;
  Uuid second;
  log.observe([&](const TerminalSessionEvent& event) {
    order += "a" + std::to_string(event.cursor.sequence);
    if (event.cursor.sequence == 1) publish(3);
    if (event.cursor.sequence == 3) log.removeObserver(second);
  });
  second = log.observe(
      [&](const TerminalSessionEvent& event) { order += "b" + std::to_string(event.cursor.sequence); });
  publish(1);
  EXPECT_EQ(order, "a1b1a2b2a3b3a4") << "who leaves during a delivery still takes part in it";
}

}  // namespace
}  // namespace velotide
