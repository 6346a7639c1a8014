#include <gtest/gtest.h>
#include <signal.h>

#include <thread>

#include "support/stepped_service.h"

namespace velotide {
namespace {

using Action = TerminalRuntimeAction;

class Deadlines : public testing::Test {
 protected:
  // Over a fresh connection, so that the deadline of an idle one does not get in the way.
  TerminalRuntimeResponse ask(const TerminalRuntimeRequest& asked) {
    return SteppedClient(service).request(asked);
  }
  TerminalRuntimeSessionInfo create(const std::string& script) {
    return ask(service.creation(script)).session.value();
  }
  std::vector<TerminalRuntimeDisconnectDiagnostic> disconnects() {
    return ask(service.make(Action::diagnostics)).disconnects.value();
  }

  SteppedService service;
  ManualClock& clock = service.clock;
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
  EXPECT_TRUE(disconnects().empty());
}

TEST_F(Deadlines, ASubscriberHearsSomethingEveryFifteenSeconds) {
  SteppedClient client(service);
  const auto subscribed = client.request(service.make(Action::subscribe, create("cat")));
  clock.advance(14.9);
  service.turn(2);
  EXPECT_FALSE(client.take());
  clock.advance(0.1);
  const auto push = client.next();
  EXPECT_EQ(push.id, subscribed.id);
  EXPECT_TRUE(push.session && push.data && push.data->empty());
  service.turn(5);
  EXPECT_FALSE(client.take()) << "one heartbeat, not one a turn";
}

TEST_F(Deadlines, AnAnswerWaitsOneTurnForItsEchoWhereTheEchoIsFollowed) {
  auto session = create("stty raw -echo; printf ready; exec sleep 30");
  service.turnUntil([&] { return ask(service.make(Action::read, session)).latestOffset == 5U; });
  SteppedClient follower(service);
  SteppedClient other(service);
  ASSERT_TRUE(follower.request(service.make(Action::subscribe, session)).ok);
  for (SteppedClient* client : {&follower, &other}) {
    client->send(service.typed(session, "x"));
    service.turn();
    EXPECT_EQ(client->take().has_value(), client == &other);
    service.turn();
    EXPECT_EQ(client->take().has_value(), client == &follower);
    ++session.nextInputSequence;
  }
}

TEST_F(Deadlines, AStreamOfInputKeepsNoOtherTerminalWaiting) {
  auto typed = create("exec yes");
  SteppedClient typist(service);
  SteppedClient watcher(service);
  ASSERT_TRUE(typist.request(service.make(Action::subscribe, typed)).ok);
  ASSERT_TRUE(watcher.request(service.make(Action::subscribe, create("exec yes"))).ok);
  int pushes = 0;
  for (int count = 0; count < 40; ++count) {
    typist.send(service.typed(typed, "x"));
    ++typed.nextInputSequence;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));  // until both are full again
    clock.advance(0.0001);
    service.turn();
    while (typist.take()) continue;
    while (watcher.take()) ++pushes;
  }
  EXPECT_GE(pushes, 5);
}

// What one turn does, however much there is to do.
using Turns = Deadlines;

TEST_F(Turns, AnswerEightRequestsTwiceAndReadSixteenKibibytesOfAClient) {
  const std::string hello =
      R"({"protocolVersion":3,"action":"hello","id":")" + Uuid::random().text() + "\"}\n";
  for (const auto& [padding, answered] : {std::pair(std::size_t{0}, std::vector{8, 16, 20}),
                                          std::pair(16384 - hello.size(), std::vector{1, 2, 3})}) {
    SteppedClient client(service);
    for (int each = 0; each < answered.back(); ++each) client.sendRaw(std::string(padding, ' ') + hello);
    int got = 0;
    for (const int expected : answered) {
      service.turn();
      while (client.take()) ++got;
      EXPECT_EQ(got, expected);
    }
  }
}

TEST_F(Turns, TakeEightConnections) {
  std::deque<SteppedClient> waiting;
  while (waiting.size() < 10) waiting.emplace_back(service, 0).sendRaw("\n");
  service.turn(2);
  EXPECT_EQ(std::ranges::count_if(waiting, &SteppedClient::isClosed), 8);
}

TEST_F(Turns, TakeOfEachTerminalItsShare) {
  const auto pause = std::chrono::milliseconds(1);
  // The first terminal is alone with its watcher and the listener; reads may be short.
  for (const auto& [turns, passed, least, most] :
       {std::tuple(20, 0.02, 8193U, 8192U + 3 * 1024), std::tuple(1, 0.0, 513U, 1024U),
        std::tuple(1, 0.02, 1025U, 4096U)}) {
    const TemporaryDirectory directory;
    const std::string full = directory.path() + "/full";
    SteppedClient watcher(service);
    const auto session = create("head -c 9000 /dev/zero; : >" + full + "; exec yes");
    ASSERT_TRUE(watcher.request(service.make(Action::subscribe, session)).ok);
    for (int tries = 0; !std::filesystem::exists(full) && tries < 9000; ++tries)
      std::this_thread::sleep_for(pause);
    while (watcher.take()) continue;
    clock.advance(passed);
    std::size_t taken = 0;
    for (int count = 0; count < turns; ++count, std::this_thread::sleep_for(pause)) {
      service.turn();
      while (const auto push = watcher.take()) taken = std::max(taken, push->data->copy().size());
    }
    EXPECT_GE(taken, least);
    EXPECT_LE(taken, most);
  }
}

TEST_F(Deadlines, AClientThatTakesNothingIsCutOffAndASubscriberLater) {
  const auto session = create("head -c 1000000 /dev/zero; cat");
  service.turnUntil([&] { return ask(service.make(Action::read, session)).latestOffset == 1000000U; });
  auto subscription = service.make(Action::subscribe, session);
  subscription.after = {{session.generation, 0}};
  for (const auto& [asked, times, seconds] :
       {std::tuple(subscription, 1, 30), std::tuple(service.make(Action::read, session), 12, 5)}) {
    SteppedClient client(service);
    // More than a socket holds and less than the queue's bound: the queue then stands still.
    for (int each = 0; each < times; ++each) client.send(asked);
    service.turn(30);
    const std::size_t before = disconnects().size();
    clock.advance(seconds - 0.5);
    service.turn(2);
    EXPECT_EQ(disconnects().size(), before);
    clock.advance(1);
    service.turn(2);
    const auto dropped = disconnects();
    ASSERT_EQ(dropped.size(), before + 1);
    EXPECT_EQ(dropped.back().reason, "write_deadline");
    EXPECT_EQ(dropped.back().lastAction, asked.action);
    EXPECT_EQ(dropped.back().subscribed, asked.action == Action::subscribe);
    EXPECT_GT(dropped.back().queuedBytes, 0);
    EXPECT_GT(dropped.back().idleSeconds, seconds);
  }
}

TEST_F(Deadlines, ALeaseLapsesAfterTwoMinutesUnlessItIsRenewed) {
  auto session = create("cat");
  auto acquire = service.make(Action::acquireControl, session);
  acquire.owner = "agent";
  session = ask(acquire).session.value();
  clock.advance(119);
  auto input = service.typed(session, "x");
  input.source = TerminalRuntimeInputSource::ai;
  input.owner = "agent";
  const auto renewed = ask(input);
  ASSERT_TRUE(renewed.ok);
  EXPECT_EQ(renewed.session->controlExpiresAt, clock.date() + 120) << "an agent's input renews its lease";

  clock.advance(119.9);
  auto typed = service.typed(*renewed.session, "y");
  EXPECT_EQ(ask(typed).error, "control_owned");
  clock.advance(0.1);
  typed.id = Uuid::random();
  EXPECT_EQ(ask(typed).error, "control_changed") << "the epoch changed with the lapse";

  const auto free = ask(service.make(Action::list)).sessions->front();
  EXPECT_FALSE(free.controlOwner);
  EXPECT_EQ(free.nextInputSequence, 1U);
  EXPECT_TRUE(ask(service.typed(free, "y")).ok);
}

TEST_F(Deadlines, AChildThatIgnoresTheHangUpIsKilledAfterThreeSecondsAndHoldsTheServiceUntilThen) {
  const auto session = create("trap '' HUP; echo ready; while :; do sleep 1; done");
  service.turnUntil([&] { return ask(service.make(Action::read, session)).latestOffset > 0U; });
  EXPECT_TRUE(ask(service.make(Action::close, session)).session->running);
  EXPECT_TRUE(ask(service.make(Action::shutdownIfEmpty)).ok);
  EXPECT_EQ(ask(service.creation("true")).error, "unavailable");
  clock.advance(3);
  service.turn(20);
  EXPECT_EQ(kill(session.pid, 0), 0) << "three seconds are not over";
  clock.advance(0.01);
  service.turnUntil([&] { return !service.isRunning(); });
  EXPECT_EQ(kill(session.pid, 0), -1);
}

}  // namespace
}  // namespace velotide
