#include "waits/wait_coordinator.h"

#include <gtest/gtest.h>

#include <tuple>

#include "support/refusal.h"

namespace velotide {
namespace {

using Condition = TerminalWaitCondition;
using Kind = TerminalSessionEventKind;
using Spec = TerminalWaitSpec;

constexpr auto allConditions = {Condition::commandFinished, Condition::agentState, Condition::attention,
                                Condition::outputChanged, Condition::events};

std::string newText() { return Uuid::random().text(); }

// A coordinator over a log of eight events and one session, which the tests change by hand.
class Waits : public testing::Test {
 protected:
  Waits() { agent.instanceID = agent.runID = run; }

  // A wait that nothing satisfies yet.
  Spec spec(Condition condition) const {
    return {condition, events.cursor(), tab, command, run, run, TerminalAgentActivity::blocked, 0};
  }
  // How the wait is refused, or how waits have ended when it has begun.
  std::string begin(const Spec& wanted, const std::string& by, const std::string& id = newText()) {
    const std::string word = refusal<TerminalWaitError>([&] { waits.begin(id, by, wanted, now); });
    return word.empty() ? outcomes() : word;
  }
  std::string begin(Condition condition, void (*change)(Spec&) = nullptr) {
    Spec wanted = spec(condition);
    if (change) change(wanted);
    return begin(wanted, owner);
  }
  std::string outcomes() {
    results = waits.drainCompletions();
    std::string words;
    for (const auto& each : results) words += (words.empty() ? "" : " ") + std::string(rawWord(each.outcome));
    return words;
  }
  void publish(const Uuid& tabID, Kind kind = Kind::outputChanged) { events.publish(tabID, kind, now); }

  const Uuid tab = Uuid::random(), command = Uuid::random(), run = Uuid::random();
  const std::string owner = newText();
  Date now{1000};
  TerminalAgentSnapshot agent;
  TerminalWaitCommandSnapshot state;
  TerminalWaitTargetSnapshot session{
      &agent, 0, [this](const Uuid& id) { return id == command ? std::optional(state) : std::nullopt; }};
  std::vector<const TerminalAttentionItem*> items;
  bool isMonitoring = true;
  std::vector<TerminalWaitResult> results;
  TerminalSessionEventStore events{Uuid::random(), 8};
  // Publishes a second event before the waits hear of the first.
  const Uuid echo = events.observe([this](const TerminalSessionEvent& event) {
    if (event.kind == Kind::commandStarted) publish(tab, Kind::commandFinished);
  });
  TerminalWaitCoordinator waits{
      {events, [this](const Uuid& id) { return id == tab ? std::optional(session) : std::nullopt; },
       [this] { return std::span<const TerminalAttentionItem* const>(items); },
       [this] { return isMonitoring; }}};
};

TEST_F(Waits, MatchAtTheEventThatBringsThemAboutOrAtOnce) {
  for (Condition condition : {Condition::commandFinished, Condition::agentState, Condition::outputChanged}) {
    begin(condition);
    publish(tab);
  }
  EXPECT_EQ(outcomes(), "");
  state = {true, TerminalCommandLifecycleState::failed};
  agent.activity = TerminalAgentActivity::blocked;
  session.outputRevision = 5;
  publish(tab);
  EXPECT_EQ(outcomes(), "matched matched matched");
  for (const TerminalWaitResult& result : results) EXPECT_EQ(result.cursor, events.cursor());
  EXPECT_EQ(results[0].commandID, command);
  EXPECT_EQ(results[0].commandState, state.state);
  EXPECT_EQ(results[1].agent, agent);
  EXPECT_EQ(results[2].revision, 5);
  EXPECT_FALSE(results[0].agent || results[1].revision || results[2].commandID || results[2].event);
  EXPECT_EQ(begin(Condition::commandFinished), "matched");
}

TEST_F(Waits, OnTheLogMatchTheFirstThingOfTheirSessionBehindTheirCursor) {
  const Uuid other = Uuid::random();
  publish(other);
  const Spec early = spec(Condition::events);
  Spec any = early;
  any.tabID.reset();
  begin(Condition::events);
  begin(Condition::attention);
  publish(other);
  EXPECT_EQ(begin(any, owner), "matched");
  EXPECT_EQ(results[0].event, events.eventAt(2));
  TerminalAttentionItem raised[4];
  const std::pair<Uuid, std::uint64_t> places[] = {{tab, 1}, {other, 4}, {tab, 4}, {tab, 3}};
  for (int each = 0; each < 4; ++each) {
    std::tie(raised[each].tabID, raised[each].createdSequence) = places[each];
    items.push_back(&raised[each]);
  }
  publish(tab, Kind::commandStarted);
  EXPECT_EQ(outcomes(), "matched matched");
  EXPECT_EQ(results[0].event, events.eventAt(3));
  EXPECT_EQ(results[0].cursor, events.eventAt(3).cursor);
  EXPECT_EQ(results[1].attention, raised[2]);
  EXPECT_EQ(results[1].cursor.sequence, 4U);
  EXPECT_EQ(begin(early, owner), "matched");
  EXPECT_EQ(results[0].event, events.eventAt(3));
  begin(Condition::attention);
  for (int each = 0; each < 8; ++each) publish(tab);
  EXPECT_EQ(outcomes(), "");
  publish(tab);
  EXPECT_EQ(outcomes(), "cursorExpired");
  EXPECT_EQ(begin(early, owner), "cursorExpired");
}

TEST_F(Waits, EndAtOnceWhenTheyCannotMatch) {
  const std::tuple<Condition, void (*)(Spec&), const char*> cases[] = {
      {Condition::commandFinished, [](Spec& of) { of.commandID = Uuid{}; }, "targetReplaced"},
      {Condition::agentState, [](Spec& of) { of.instanceID = Uuid{}; }, "targetReplaced"},
      {Condition::agentState, [](Spec& of) { of.runID = Uuid{}; }, "targetReplaced"},
      {Condition::commandFinished, [](Spec& of) { of.commandID.reset(); }, "invalidSpec"},
      {Condition::agentState, [](Spec& of) { of.instanceID.reset(); }, "invalidSpec"},
      {Condition::agentState, [](Spec& of) { of.runID.reset(); }, "invalidSpec"},
      {Condition::agentState, [](Spec& of) { of.activity.reset(); }, "invalidSpec"},
      {Condition::outputChanged, [](Spec& of) { of.revision.reset(); }, "invalidSpec"},
      {Condition::outputChanged, [](Spec& of) { of.revision = -1; }, "invalidSpec"}};
  for (const auto& [condition, change, outcome] : cases) EXPECT_EQ(begin(condition, change), outcome);
  for (Condition condition : allConditions) {
    const auto closed = [](Spec& of) { of.tabID = Uuid{}; };
    EXPECT_EQ(begin(condition, closed), "targetClosed");
    EXPECT_EQ(begin(condition, [](Spec& of) { of.after = {Uuid{}, 99}; }), "appRestarted");
    EXPECT_EQ(begin(condition, [](Spec& of) { ++of.after.sequence; }), "futureCursor");
    EXPECT_EQ(begin(condition, [](Spec& of) { of.timeoutSeconds = -0.0; }), "timeout");
    EXPECT_EQ(begin(condition, [](Spec& of) { of.timeoutSeconds = -0.5; }), "invalidSpec");
    EXPECT_EQ(begin(condition, [](Spec& of) { of.timeoutSeconds = 60.5; }), "invalidSpec");
    EXPECT_EQ(begin(condition, [](Spec& of) { of.timeoutSeconds = 60; }), "");
    EXPECT_EQ(begin(condition, [](Spec& of) { of.tabID.reset(); }),
              condition == Condition::events ? "" : "invalidSpec");
    isMonitoring = false;
    const bool isFollowed = condition == Condition::agentState || condition == Condition::attention;
    EXPECT_EQ(begin(condition, closed), isFollowed ? "disabled" : "targetClosed");
    isMonitoring = true;
  }
  EXPECT_EQ(begin(spec(Condition::events), "me"), "invalidSpec");
  EXPECT_EQ(begin(spec(Condition::events), owner, "this"), "invalidSpec");
}

TEST_F(Waits, AreBoundedAndNamedOnceUntilCollected) {
  const Spec wanted = spec(Condition::outputChanged);
  const std::string id = newText();
  begin(wanted, owner, id);
  EXPECT_EQ(begin(wanted, newText(), id), "duplicateID");
  for (int each = 1; each < 16; ++each) EXPECT_EQ(begin(wanted, owner), "");
  EXPECT_EQ(begin(wanted, owner), "capacityExceeded");
  for (int each = 16; each < 128; ++each) EXPECT_EQ(begin(wanted, newText()), "");
  waits.cancelAll(owner, now);
  EXPECT_EQ(begin(wanted, newText()), "capacityExceeded");
  EXPECT_EQ(begin(wanted, newText(), id), "duplicateID");
  EXPECT_EQ(waits.drainCompletions().size(), 16U);
  EXPECT_EQ(begin(wanted, newText(), id), "");
}

TEST_F(Waits, EndWithTheirTimeSessionRunMonitoringAndTheService) {
  begin(Condition::agentState, [](Spec& of) { of.timeoutSeconds = 10; });
  begin(Condition::agentState, [](Spec& of) { of.timeoutSeconds = 11; });
  waits.expire({1009.9});
  now = {1010};
  publish(Uuid::random(), Kind::closed);
  EXPECT_EQ(outcomes(), "");
  publish(tab, Kind::closed);
  EXPECT_EQ(outcomes(), "timeout targetClosed");
  for (Condition condition : allConditions) begin(condition);
  agent.instanceID = Uuid::random();
  publish(tab, Kind::agentChanged);
  EXPECT_EQ(outcomes(), "targetReplaced matched");
  waits.disableAgentWaits();
  EXPECT_EQ(outcomes(), "disabled");
  waits.shutdown();
  EXPECT_EQ(begin(Condition::events), "appExited appExited");
  waits.expire({1040});
  EXPECT_EQ(outcomes(), "timeout");
}

TEST_F(Waits, AreCancelledByTheirOwnerAloneAndUpToAMinuteEarly) {
  const std::string id = newText();
  begin(spec(Condition::events), owner, id);
  EXPECT_FALSE(waits.cancel(id, newText(), now));
  EXPECT_TRUE(waits.cancel(id, owner, now));
  EXPECT_EQ(outcomes(), "cancelled");
  const auto outcomeAfter = [this](const std::string& by, Seconds pause) {
    const std::string early = newText();
    EXPECT_FALSE(waits.cancel(early, by, now));
    waits.expire(now + pause);
    waits.drainCompletions();
    const std::string outcome = begin(spec(Condition::events), owner, early);
    EXPECT_NE(begin(spec(Condition::events), owner, early), "cancelled") << "it is used up";
    return outcome;
  };
  EXPECT_EQ(outcomeAfter(owner, 60), "cancelled");
  EXPECT_EQ(outcomeAfter(owner, 60.1), "");
  EXPECT_EQ(outcomeAfter(newText(), 0), "");
  for (int each = 0; each < 128; ++each) waits.cancel(newText(), owner, now);
  EXPECT_EQ(outcomeAfter(owner, 0), "");
}

TEST_F(Waits, OwnerThatCancelledEverythingStaysClosedForAMinute) {
  for (int each = 0; each < 127; ++each) waits.cancelAll(newText(), now);
  const std::string late = newText();
  for (const std::string& each : {std::string("me"), owner, late}) waits.cancelAll(each, now);
  for (int each = 0; each < 2; ++each) EXPECT_EQ(begin(Condition::events), "cancelled");
  EXPECT_EQ(begin(spec(Condition::events), late), "");
  waits.expire(now + 60.1);
  EXPECT_EQ(begin(Condition::events), "timeout");
}

}  // namespace
}  // namespace velotide
