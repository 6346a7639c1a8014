#include <gtest/gtest.h>
#include <signal.h>

#include "support/stepped_service.h"

namespace velotide {
namespace {

using Action = TerminalRuntimeAction;

class Deadlines : public testing::Test {
 protected:
  TerminalRuntimeRequest request(Action action) { return SteppedClient(service).make(action); }
  TerminalRuntimeRequest request(Action action, const TerminalRuntimeSessionInfo& session) {
    TerminalRuntimeRequest made = request(action);
    made.sessionID = session.id;
    made.generation = session.generation;
    made.controlEpoch = session.controlEpoch;
    return made;
  }
  // Over a fresh connection, so that the deadline of an idle one does not get in the way.
  TerminalRuntimeResponse ask(const TerminalRuntimeRequest& asked) {
    return SteppedClient(service).request(asked);
  }
  TerminalRuntimeSessionInfo create(const std::string& script) {
    TerminalRuntimeRequest asked = request(Action::create);
    asked.launch.emplace();
    asked.launch->executable = "/bin/sh";
    asked.launch->arguments = {"-c", script};
    asked.launch->environment = {{"PATH", "/usr/bin:/bin"}};
    asked.launch->directory = "/";
    return ask(asked).session.value();
  }

  SteppedService service;
  ManualClock& clock = service.clock;
  std::vector<std::string> disconnectReasons() {
    std::vector<std::string> reasons;
    const auto disconnects = ask(request(Action::diagnostics)).disconnects.value();
    for (const auto& each : disconnects) reasons.push_back(each.reason);
    return reasons;
  }
};

TEST_F(Deadlines, AnIdleClientIsDroppedAfterFiveSecondsWithoutADiagnostic) {
  SteppedClient silent(service);
  SteppedClient halfSent(service);
  service.turn(1);
  clock.advance(4);
  halfSent.sendRaw("{\"half");
  service.turn(2);
  clock.advance(1);
  service.turn(1);
  EXPECT_FALSE(silent.isClosed()) << "exactly five seconds are allowed";
  clock.advance(0.01);
  service.turn(1);
  EXPECT_TRUE(silent.isClosed());
  EXPECT_FALSE(halfSent.isClosed()) << "received bytes are progress";
  clock.advance(5);
  service.turn(1);
  EXPECT_TRUE(halfSent.isClosed());
  EXPECT_TRUE(disconnectReasons().empty());
}

TEST_F(Deadlines, ASubscriberHearsSomethingEveryFifteenSeconds) {
  SteppedClient client(service);
  const auto session = create("cat");
  const auto subscribed = client.request(request(Action::subscribe, session));
  clock.advance(14.9);
  service.turn(2);
  EXPECT_FALSE(client.take());
  clock.advance(0.1);
  const auto push = client.next();
  EXPECT_EQ(push.id, subscribed.id);
  EXPECT_TRUE(push.data && push.data->empty());
  EXPECT_EQ(push.cursor, subscribed.cursor);
  EXPECT_TRUE(push.session);
  EXPECT_FALSE(push.features);
  service.turn(5);
  EXPECT_FALSE(client.take()) << "one heartbeat, not one a turn";
}

TEST_F(Deadlines, ASubscriberThatTakesNothingIsCutOffAfterThirtySeconds) {
  SteppedClient client(service);
  const auto session = create("head -c 1000000 /dev/zero; cat");
  client.request(request(Action::subscribe, session));
  // More than a socket holds and less than the queue's bound: the queue then stands still.
  SteppedClient other(service);
  service.turnUntil([&] { return other.request(request(Action::read, session)).latestOffset == 1000000U; });
  clock.advance(29);
  service.turn(2);
  clock.advance(0.5);
  service.turn(2);
  EXPECT_TRUE(disconnectReasons().empty());
  clock.advance(1);
  service.turn(2);
  const auto disconnects = ask(request(Action::diagnostics)).disconnects.value();
  ASSERT_EQ(disconnects.size(), 1U);
  EXPECT_EQ(disconnects[0].reason, "write_deadline");
  EXPECT_TRUE(disconnects[0].subscribed);
  EXPECT_GT(disconnects[0].queuedBytes, 0);
  EXPECT_GT(disconnects[0].idleSeconds, 30);
}

TEST_F(Deadlines, ALeaseLapsesAfterTwoMinutesUnlessItIsRenewed) {
  SteppedClient client(service);
  auto session = create("cat");
  auto acquire = request(Action::acquireControl, session);
  acquire.owner = "agent";
  session = ask(acquire).session.value();
  EXPECT_EQ(session.controlOwner, "agent");

  clock.advance(119);
  auto input = request(Action::input, session);
  input.source = TerminalRuntimeInputSource::ai;
  input.owner = "agent";
  input.inputSequence = 1;
  input.data = CarriedBytes(Bytes{'x'});
  const auto renewed = ask(input);
  ASSERT_TRUE(renewed.ok) << *renewed.error;
  EXPECT_EQ(renewed.session->controlExpiresAt, clock.date() + 120) << "an agent's input renews its lease";

  clock.advance(119.9);
  auto typed = request(Action::input, session);
  typed.source = TerminalRuntimeInputSource::human;
  typed.inputSequence = 2;
  typed.data = CarriedBytes(Bytes{'y'});
  EXPECT_EQ(ask(typed).error, "control_owned");
  clock.advance(0.1);
  typed.id = Uuid::random();
  EXPECT_EQ(ask(typed).error, "control_changed") << "the epoch changed with the lapse";

  const auto free = ask(request(Action::list)).sessions->front();
  EXPECT_FALSE(free.controlOwner);
  EXPECT_EQ(free.nextInputSequence, 1U);
  typed.id = Uuid::random();
  typed.controlEpoch = free.controlEpoch;
  typed.inputSequence = 1;
  EXPECT_TRUE(ask(typed).ok);
}

TEST_F(Deadlines, AChildThatIgnoresTheHangUpIsKilledAfterThreeSecondsAndHoldsTheServiceUntilThen) {
  SteppedClient client(service);
  const auto session = create("trap '' HUP; echo ready; while :; do sleep 1; done");
  service.turnUntil([&] { return ask(request(Action::read, session)).latestOffset > 0U; });
  const auto closed = ask(request(Action::close, session));
  EXPECT_TRUE(closed.session->running);
  EXPECT_TRUE(ask(request(Action::shutdownIfEmpty)).ok);
  auto late = request(Action::create);
  late.launch.emplace();
  EXPECT_EQ(ask(late).error, "unavailable");
  clock.advance(3);
  service.turn(20);
  EXPECT_EQ(kill(session.pid, 0), 0) << "three seconds are not over";
  clock.advance(0.01);
  service.turnUntil([&] { return !service.isRunning(); });
  EXPECT_EQ(kill(session.pid, 0), -1);
}

TEST_F(Deadlines, PushesComeInChunksWithoutHolesAndTheLastSaysThatTheTargetIsClosed) {
  SteppedClient client(service);
  const auto session = create("stty raw; printf 'go'; head -c 1 >/dev/null; head -c 200000 /dev/zero; cat");
  service.turnUntil([&] { return ask(request(Action::read, session)).latestOffset == 2U; });
  auto cursor = client.request(request(Action::subscribe, session)).cursor.value();
  auto input = request(Action::input, session);
  input.source = TerminalRuntimeInputSource::human;
  input.inputSequence = 1;
  input.data = CarriedBytes(Bytes{'x'});
  EXPECT_TRUE(ask(input).ok);
  while (cursor.offset < 200002) {
    const auto push = client.next();
    ASSERT_TRUE(push.data) << push.error.value_or("");
    EXPECT_LE(push.data->size(), 65536U);
    EXPECT_EQ(push.cursor->offset, cursor.offset + push.data->size());
    EXPECT_FALSE(*push.hasGap);
    cursor = *push.cursor;
  }
  EXPECT_TRUE(ask(request(Action::close, session)).ok);
  const auto last = client.next();
  EXPECT_FALSE(last.ok);
  EXPECT_EQ(last.error, "target_closed");
  EXPECT_TRUE(client.request(request(Action::list)).sessions->empty()) << "the connection stays usable";
}

TEST_F(Deadlines, TheNewestThirtyTwoDisconnectsAreKept) {
  for (int each = 0; each < 40; ++each) {
    SteppedClient client(service);
    if (each == 7) client.send(request(Action::list));
    client.sendRaw(each < 8 ? "not json\n" : "\n");
    service.turn(2);
    EXPECT_TRUE(client.isClosed() || client.isClosed());
  }
  const auto disconnects = ask(request(Action::diagnostics)).disconnects.value();
  EXPECT_EQ(disconnects.size(), 32U);
  for (const auto& each : disconnects) EXPECT_EQ(each.reason, "invalid_frame");
}

TEST_F(Deadlines, ARepeatedRequestIsAnsweredFromTheCacheUntilAThousandNewerOnes) {
  SteppedClient client(service);
  const auto session = create("cat");
  auto input = request(Action::input, session);
  input.source = TerminalRuntimeInputSource::human;
  input.inputSequence = 1;
  input.data = CarriedBytes(Bytes{'x'});
  auto first = client.request(input);
  const auto second = client.request(input);
  EXPECT_TRUE(first.eventHead);
  first.eventHead.reset();
  EXPECT_EQ(second, first) << "nothing is refreshed in a replay";
  auto other = request(Action::resize, session);
  other.id = input.id;
  EXPECT_EQ(client.request(other).error, "invalid_request");

  auto resize = request(Action::resize, session);
  resize.columns = 100;
  resize.rows = 30;
  for (int each = 0; each < 1024; ++each) {
    resize.id = Uuid::random();
    ASSERT_TRUE(client.request(resize).ok);
  }
  EXPECT_EQ(client.request(input).error, "control_changed") << "forgotten, and carried out anew";
}

}  // namespace
}  // namespace velotide
