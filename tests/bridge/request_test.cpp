#include "base/record.h"
#include "bridge_fixture.h"

namespace velotide {
namespace {

TEST_F(Bridge, EveryRefusalHasItsWord) {
  context.prepare(tab, root);
  const std::string token = R"(,"nativeAgentToken":")" + *context.token() + "\"";
  const std::string id = R"("11111111-2222-4333-8444-555555555555")";
  const std::string from = R"({"appEpoch":")" + events.appEpoch().text() + R"(","sequence":)";
  for (int each = 0; each < 6; ++each) events.publish(tab, TerminalSessionEventKind::outputChanged, now);
  using Row = std::pair<std::string, const char*>;
  for (const auto& [request, word] :
       {Row{R"(list_attention","tab":"x")", "unavailable"},
        Row{R"(get_agent_state","controlID":"x")", "unavailable"},
        Row{R"(get_agent_state","tab":)" + id, "unavailable"}, Row{R"(fly","tab":)" + id, "unavailable"},
        Row{R"(fly",)" + tabKey, "invalidCapability"},
        Row{R"(List_attention",)" + tabKey, "invalidCapability"},
        Row{R"(bind_native_agent","agentKind":"tesseral",)" + tabKey, "invalidCapability"},
        Row{R"(bind_native_agent",)" + tabKey + token, "invalidCapability"},
        Row{R"(bind_native_agent","agentKind":"claude",)" + tabKey + token, "invalidCapability"},
        Row{R"(report_agent_state",)" + tabKey, "invalidState"},
        Row{R"(report_agent_state","agentReport":{"instanceID":)" + id + R"(,"runID":)" + id +
                R"(,"token":"","sequence":1,"activity":"idle"},)" + tabKey,
            "invalidCapability"},
        Row{R"(read_session_events","eventCursor":)" + from + "99}", "future_cursor"},
        Row{R"(read_session_events","eventCursor":)" + from + "1}", "cursor_expired"},
        Row{R"(read_session_events","eventCursor":{"appEpoch":)" + id + R"(,"sequence":1})", "app_restarted"},
        Row{R"(wait_session","controlID":)" + id, "invalidSpec"},
        Row{R"(cancel_wait","controlID":)" + id, "invalidSpec"},
        Row{R"(cancel_wait","controlID":"me","waitID":"w")", "invalidSpec"},
        Row{R"(cancel_all_waits","waitID":"w")", "invalidSpec"}}) {
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

TEST_F(Bridge, RequestIsAnsweredAtOnceAndWaitByItsResult) {
  const std::string owner = newText();
  const std::string wait = R"("action":"wait_session","controlID":")" + owner +
                           R"(","waitSpec":{"condition":"events","after":{"appEpoch":")" +
                           events.appEpoch().text() + R"(","sequence":0}})";
  const std::string listing = drop(R"("action":"list_attention")");
  pass();
  EXPECT_EQ(text("responses/" + listing + ".json"),
            "{\"id\":\"" + listing +
                R"(","action":"list_attention","version":"1.257.0-rc3","schemaVersion":1,)" +
                R"("appName":"Velotide","snapshotSequence":0,"ok":true,"attention":[]})");
  collect(listing);
  const std::string silent = drop(wait + R"(,"noResponse":true)");
  const std::string cancelled = drop(wait);
  pass();
  EXPECT_TRUE(names("responses").empty());
  drop(wait, cancelled);
  pass();
  EXPECT_EQ(collect(cancelled)->error, "duplicateID");
  EXPECT_TRUE(
      ask(R"("action":"cancel_wait","controlID":")" + owner + R"(","waitID":")" + cancelled + "\"").ok);
  EXPECT_EQ(collect(cancelled)->waitResult->outcome, TerminalWaitOutcome::cancelled);
  now = now + 30;
  pass();
  EXPECT_EQ(collect(silent)->waitResult->outcome, TerminalWaitOutcome::timeout);
  events.publish(tab, TerminalSessionEventKind::outputChanged, now);
  EXPECT_EQ(ask(wait).waitResult->event, events.eventAt(1));
  EXPECT_TRUE(ask(R"("action":"cancel_all_waits","controlID":")" + owner + "\"").ok);
  EXPECT_EQ(ask(wait).waitResult->outcome, TerminalWaitOutcome::cancelled);
}

}  // namespace
}  // namespace velotide
