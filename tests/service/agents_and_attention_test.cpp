#include <gtest/gtest.h>

#include <filesystem>

#include "base/record.h"
#include "support/stepped_service.h"

namespace velotide {
namespace {

using Action = TerminalRuntimeAction;
using Activity = TerminalAgentActivity;

class AgentsAndAttention : public testing::Test {
 protected:
  void create(const std::string& script, const TerminalReminderPolicy& policy = {}) {
    TerminalRuntimeRequest request = service.creation(script);
    request.launch->reminderPolicy = policy;
    session = client.request(request).session.value();
  }
  void pressReturn() { EXPECT_TRUE(client.request(service.typed(session, "\n")).ok); }
  TerminalRuntimeRequest make(Action action) const { return service.make(action, session); }
  TerminalRuntimeResponse ask(Action action) { return client.request(make(action)); }
  void awaitCommand() {
    service.turnUntil([&] { return ask(Action::getAgentState).session->commands->size() == 1; });
  }
  void bind() {
    TerminalRuntimeRequest request = make(Action::bindAgent);
    request.agentKind = TerminalAgentKind::codex;
    grant = client.request(request).agentGrant.value();
  }
  TerminalRuntimeRequest makeReport(Activity activity, std::optional<TerminalAgentBlockReason> block = {}) {
    TerminalRuntimeRequest request = make(Action::reportAgent);
    request.agentReport = {grant.instanceID, grant.runID, grant.token, ++sequence, activity, block, {}, {}};
    return request;
  }
  // "kind vVERSION" of each item, with "*" when it is stale.
  static std::string textOf(const TerminalRuntimeResponse& response) {
    if (!response.attention) return response.error.value_or("absent");
    std::string text;
    for (const auto& item : *response.attention)
      text += (text.empty() ? "" : ", ") + std::string(rawWord(item.kind)) + " v" +
              std::to_string(item.version) + (item.isStale ? "*" : "");
    return text;
  }
  TerminalRuntimeResponse acknowledge(const TerminalAttentionItem& item) {
    TerminalRuntimeRequest request = service.make(Action::acknowledgeAttention);
    request.attentionID = item.id;
    request.attentionVersion = item.version;
    return client.request(request);
  }
  std::string pushed() {
    service.turn();
    const std::optional<TerminalRuntimeResponse> push = watcher.take();
    return push ? textOf(*push) : "nothing";
  }
  // Marks of a shell as a script prints them, around "make" that ends with 2.
  const std::string start = "\\033]777;Velotide;start=6d616b65\\007";
  const std::string end = "\\033]777;Velotide;end=2\\007";
  SteppedService service;
  SteppedClient client{service};
  SteppedClient watcher{service};
  TerminalRuntimeSessionInfo session;
  TerminalAgentGrant grant;
  std::uint64_t sequence = 0;
};

TEST_F(AgentsAndAttention, AReportReachesTheSubscriberInOneTurn) {
  create("exec sleep 30");
  bind();
  EXPECT_TRUE(watcher.request(make(Action::subscribe)).ok);
  client.send(makeReport(Activity::blocked, TerminalAgentBlockReason::approval));
  EXPECT_EQ(pushed(), "approval v1");
  EXPECT_EQ(textOf(client.take().value()), "approval v1");

  // What changes nothing but the times is a new revision and no news.
  const TerminalRuntimeResponse before = ask(Action::getAgentState);
  const TerminalRuntimeResponse again =
      client.request(makeReport(Activity::blocked, TerminalAgentBlockReason::approval));
  EXPECT_EQ(again.session->revision, before.session->revision + 1);
  EXPECT_EQ(pushed(), "nothing");

  EXPECT_EQ(textOf(acknowledge(before.attention->front())), "approval v2");
  EXPECT_EQ(pushed(), "approval v2");
  EXPECT_EQ(textOf(acknowledge(before.attention->front())), "staleVersion");
  service.clock.advance(120);
  EXPECT_EQ(pushed(), "approval v3*");
  client.connect();
  EXPECT_EQ(textOf(client.request(makeReport(Activity::working))), "");
  EXPECT_EQ(pushed(), "");
  client.request(makeReport(Activity::idle));
  EXPECT_EQ(pushed(), "") << "news of the agent alone";
  EXPECT_EQ(pushed(), "nothing");
}

TEST_F(AgentsAndAttention, TheEndOfTheChildEndsItsAgentAndItsDescriptor) {
  create("printf '" + start + "'; read go", {.processExits = true});
  awaitCommand();
  bind();
  const std::filesystem::path contexts = service.root() + "/native-tools/native-agent-contexts";
  EXPECT_FALSE(std::filesystem::is_empty(contexts));
  pressReturn();
  service.turnUntil([&] {
    const auto& now = ask(Action::getAgentState).session;
    return !now->running && now->commands->front().endedAt;
  });
  EXPECT_TRUE(std::filesystem::is_empty(contexts));
  EXPECT_EQ(ask(Action::getAgentState).session->agent->activity, Activity::exited);
  EXPECT_EQ(client.request(makeReport(Activity::working)).error, "unavailable");
  EXPECT_EQ(textOf(ask(Action::listAttention)), "processExited v1");
  EXPECT_TRUE(client.request(make(Action::close)).ok);
  EXPECT_EQ(textOf(client.request(service.make(Action::listAttention))), "");
}

TEST_F(AgentsAndAttention, CommandsAndBellsLeaveRemindersInTheirSession) {
  create("exec sleep 30");
  const TerminalRuntimeRequest elsewhere = make(Action::listAttention);
  create("printf '" + start + "'; read go; printf '\\007\\007" + end + "'; exec sleep 30");
  awaitCommand();
  service.clock.advance(5);
  pressReturn();
  service.turnUntil([&] { return textOf(ask(Action::listAttention)) == "bell v1, commandFailed v1"; });
  const TerminalRuntimeResponse listed = client.request(service.make(Action::listAttention));
  EXPECT_EQ(listed.attention->front().terminal->occurrences, 2);
  EXPECT_EQ(listed.attention->front().terminal->eventID, session.generation);
  EXPECT_EQ(listed.attention->back().terminal->exitCode, 2);
  const TerminalRuntimeResponse state = ask(Action::getAgentState);
  EXPECT_EQ(listed.attention->back().terminal->commandID, state.session->commands->front().id);
  for (const auto& one : {state, ask(Action::read), ask(Action::subscribe)})
    EXPECT_EQ(textOf(one), textOf(listed));
  EXPECT_EQ(textOf(client.request(elsewhere)), "");
  EXPECT_EQ(textOf(acknowledge(listed.attention->front())), "commandFailed v1");
}

}  // namespace
}  // namespace velotide
