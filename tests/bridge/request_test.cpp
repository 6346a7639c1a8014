#include "base/record.h"
#include "bridge_fixture.h"

namespace velotide {
namespace {

TEST_F(Bridge, EveryRefusalHasItsWord) {
  context.prepare(tab, root);
  const std::string token = R"(,"nativeAgentToken":")" + *context.token() + "\"";
  const std::string id = R"("11111111-2222-4333-8444-555555555555")";
  const std::string from = R"({"appEpoch":")" + events.appEpoch().text() + R"(","sequence":)";
  const std::string wait =
      R"(wait_session","controlID":)" + id + R"(,"waitSpec":{"condition":"events","after":)";
  for (int each = 0; each < 6; ++each) events.publish(tab, TerminalSessionEventKind::outputChanged, now);
  for (int each = 0; each < 16; ++each)
    waits.begin(newText(), id.substr(1, 36), {.after = events.cursor()}, now);
  const std::pair<std::string, const char*> cases[] = {
      {R"(list_attention","tab":"x")", "unavailable"},
      {R"(get_agent_state","controlID":"x")", "unavailable"},
      {R"(get_agent_state","tab":)" + id, "unavailable"},
      {R"(fly","tab":)" + id, "unavailable"},
      {R"(fly",)" + tabKey, "invalidCapability"},
      {R"(List_attention",)" + tabKey, "invalidCapability"},
      {R"(bind_native_agent","agentKind":"tesseral",)" + tabKey, "invalidCapability"},
      {R"(bind_native_agent",)" + tabKey + token, "invalidCapability"},
      {R"(bind_native_agent","agentKind":"claude",)" + tabKey + token, "invalidCapability"},
      {R"(report_agent_state",)" + tabKey, "invalidState"},
      {R"(read_session_events","eventCursor":)" + from + "99}", "future_cursor"},
      {R"(read_session_events","eventCursor":)" + from + "1}", "cursor_expired"},
      {R"(read_session_events","eventCursor":{"appEpoch":)" + id + R"(,"sequence":1})", "app_restarted"},
      {R"(wait_session","controlID":)" + id, "invalidSpec"},
      {wait + from + R"(6},"timeoutSeconds":61})", "invalidSpec"},
      {wait + from + "6}}", "capacityExceeded"},
      {R"(cancel_wait","controlID":)" + id, "invalidSpec"},
      {R"(cancel_wait","controlID":"me","waitID":"w")", "invalidSpec"},
      {R"(cancel_all_waits","waitID":"w")", "invalidSpec"},
  };
  for (const auto& [request, word] : cases) {
    const RuntimeNativeResponse answer = ask(R"("action":")" + request);
    EXPECT_EQ(answer.error, word) << request;
    EXPECT_FALSE(answer.ok || answer.agentGrant || answer.agent || answer.attention || answer.eventBatch);
  }
  running = false;
  for (const char* action : {"bind_native_agent", "report_agent_state", "fly"})
    EXPECT_EQ(ask(R"("action":")" + std::string(action) + "\"," + tabKey).error, "unavailable");
  EXPECT_TRUE(ask(R"("action":"get_agent_state",)" + tabKey).ok);
  drop(R"("action":"fly","noResponse":true)");
  pass();
  EXPECT_TRUE(names("responses").empty());
}

TEST_F(Bridge, AgentBindsAndReports) {
  context.prepare(tab, root);
  const RuntimeNativeResponse bound = ask(R"("action":"bind_native_agent","agentKind":"tesseral",)" + tabKey +
                                          R"(,"nativeAgentToken":")" + *context.token() + "\"");
  ASSERT_TRUE(bound.agentGrant);
  EXPECT_EQ(bound.agent, monitor.snapshot());
  EXPECT_EQ(bound.snapshotSequence, 1U);
  const auto report = [&](const char* sequence) {
    return ask(R"("action":"report_agent_state",)" + tabKey + R"(,"agentReport":{"instanceID":")" +
               bound.agentGrant->instanceID.text() + R"(","runID":")" + bound.agentGrant->runID.text() +
               R"(","token":")" + bound.agentGrant->token + R"(","sequence":)" + sequence +
               R"(,"activity":"blocked","blockReason":"question"})");
  };
  EXPECT_EQ(report("1").agent->activity, TerminalAgentActivity::blocked);
  EXPECT_EQ(report("1").error, "staleSequence");
  EXPECT_EQ(ask(R"("action":"get_agent_state",)" + tabKey).agent, monitor.snapshot());
  EXPECT_EQ(ask(R"("action":"list_attention",)" + tabKey).attention, attention.activeItems());
  const RuntimeNativeResponse read = ask(R"("action":"read_session_events")");
  EXPECT_TRUE(read.eventBatch->events.empty());
  EXPECT_EQ(read.eventBatch->nextCursor, events.cursor());
}

TEST_F(Bridge, RequestIsAnsweredAtOnceAndWaitByItsResult) {
  const std::string owner = newText();
  const auto begin = [&](const std::string& more, const std::string& id = newText()) {
    return drop(R"("action":"wait_session","controlID":")" + owner +
                    R"(","waitSpec":{"condition":"events","after":{"appEpoch":")" + events.appEpoch().text() +
                    R"(","sequence":0}})" + more,
                id);
  };
  const std::string listing = drop(R"("action":"list_attention")");
  pass();
  EXPECT_EQ(text("responses/" + listing + ".json"),
            "{\"id\":\"" + listing +
                R"(","action":"list_attention","version":"1.257.0-rc3","schemaVersion":1,)" +
                R"("appName":"Velotide","snapshotSequence":0,"ok":true,"attention":[]})");
  collect(listing);
  const std::string silent = begin(R"(,"noResponse":true)");
  const std::string cancelled = begin("");
  pass();
  EXPECT_TRUE(names("responses").empty());
  begin("", cancelled);
  pass();
  EXPECT_EQ(collect(cancelled)->error, "duplicateID");
  const RuntimeNativeResponse answer =
      ask(R"("action":"cancel_wait","controlID":")" + owner + R"(","waitID":")" + cancelled + "\"");
  EXPECT_TRUE(answer.ok && !answer.waitResult);
  EXPECT_EQ(collect(cancelled)->waitResult->outcome, TerminalWaitOutcome::cancelled);
  now = now + 30;
  pass();
  const auto result = collect(silent);
  EXPECT_EQ(result->action, "wait_session");
  EXPECT_EQ(result->waitResult->outcome, TerminalWaitOutcome::timeout);
  events.publish(tab, TerminalSessionEventKind::outputChanged, now);
  const std::string matched = begin("");
  pass();
  EXPECT_EQ(collect(matched)->waitResult->event, events.eventAt(1));
  EXPECT_TRUE(ask(R"("action":"cancel_all_waits","controlID":")" + owner + "\"").ok);
  const std::string refused = begin("");
  pass();
  EXPECT_EQ(collect(refused)->waitResult->outcome, TerminalWaitOutcome::cancelled);
}

}  // namespace
}  // namespace velotide
