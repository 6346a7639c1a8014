#include "client/agent_event.h"

#include <gtest/gtest.h>

#include "base/byte_queue.h"
#include "client/agent_record.h"
#include "client/trouble.h"

namespace velotide::client {
namespace {

using Meaning = AgentEvent::Meaning;
using Reason = TerminalAgentBlockReason;
using Result = TerminalAgentResult;
using Event = std::optional<AgentEvent>;
using Reader = Event (*)(std::span<char>);

const std::string session = "3F2504E0-4F89-11D3-9A0C-0305E82C3301";

Event read(Reader reader, std::string_view payload) {
  ByteQueue text;
  text.append(payload);
  return reader(text.mutableText());
}

std::string hook(const std::string& name, const std::string& more = "") {
  return R"({"session_id":")" + session +
         R"(","transcript_path":"/t","cwd":"/","permission_mode":"default",)" + R"("hook_event_name":")" +
         name + "\"" + more + "}";
}

Event event(Meaning meaning, std::optional<Reason> reason = {}, std::optional<Result> result = {},
            std::optional<std::string> turn = {}) {
  return AgentEvent{meaning, reason, result, session, std::move(turn)};
}

struct Case {
  std::string payload;
  Event expected;
};

const Event begins = event(Meaning::sessionBegins);
const Event goesOn = event(Meaning::goesOn);
const Event asks = event(Meaning::blocks, Reason::question);
const Event wantsApproval = event(Meaning::blocks, Reason::approval);
const Event completed = event(Meaning::turnEnds, {}, Result::completed, "t-1");

TEST(AgentEvents, OfClaudeMeanWhatIsDocumentedOrNothing) {
  for (const Case& each : std::vector<Case>{
           {hook("SessionStart", R"(,"source":"startup")"), begins},
           {hook("UserPromptSubmit", R"(,"prompt":"a\u0000b")"), event(Meaning::turnBegins)},
           {hook("PreToolUse", R"(,"tool_name":"Bash","tool_input":{"a":[1]})"), goesOn},
           {hook("PreToolUse", R"(,"tool_name":"AskUserQuestion")"), asks},
           {hook("PostToolUse", R"(,"tool_name":"AskUserQuestion")"), goesOn},
           {hook("PermissionDenied", R"(,"tool_name":"Bash")"), goesOn},
           {hook("PermissionRequest", R"(,"tool_name":"Bash")"), wantsApproval},
           {hook("Notification", R"(,"notification_type":"permission_prompt")"), wantsApproval},
           {hook("Notification", R"(,"notification_type":"agent_needs_input")"), asks},
           {hook("Notification", R"(,"notification_type":"idle_prompt")"), {}},
           {hook("Elicitation"), asks},
           {hook("Stop", R"(,"stop_hook_active":false)"), event(Meaning::turnEnds, {}, Result::completed)},
           {hook("StopFailure"), event(Meaning::turnEnds, {}, Result::failed)},
           {hook("SessionEnd", R"(,"reason":"logout")"), event(Meaning::sessionEnds)},
           {hook("PreToolUse", R"(,"tool_name":"Bash","agent_id":"a1")"), {}},
           {hook("SubagentStop"), {}},
           {hook("PostToolUseFailure"), {}},
           {hook("SomethingNew"), {}},
       })
    EXPECT_EQ(read(readClaudeEvent, each.payload), each.expected) << each.payload;
}

TEST(AgentEvents, OfCodexComeFromHooksAndNotifications) {
  const std::string turn = R"(,"turn_id":"t-1","model":"m")";
  const std::string notified = R"(","thread-id":")" + session + R"(","turn-id":"t-1","input-messages":[]})";
  for (const Case& each : std::vector<Case>{
           {hook("SessionStart"), begins},
           {hook("UserPromptSubmit", turn), event(Meaning::turnBegins, {}, {}, "t-1")},
           {hook("PreToolUse", turn), event(Meaning::goesOn, {}, {}, "t-1")},
           {hook("PermissionRequest", turn), event(Meaning::blocks, Reason::approval, {}, "t-1")},
           {hook("PostToolUse", turn), event(Meaning::goesOn, {}, {}, "t-1")},
           {hook("Stop", turn), completed},
           {R"({"type":"agent-turn-complete)" + notified, completed},
           {R"({"type":"approval-requested)" + notified, {}},
           {hook("SessionEnd"), {}},
       })
    EXPECT_EQ(read(readCodexEvent, each.payload), each.expected) << each.payload;
}

TEST(AgentEvents, OfAnUndocumentedShapeAreTroubleNeverWrongUsage) {
  const auto status = [](Reader reader, const std::string& payload) {
    try {
      read(reader, payload);
    } catch (const Trouble& trouble) {
      return trouble.status;
    }
    return 0;
  };
  for (const std::string payload : {"", "{", "[]", "{}", "7", R"({"hook_event_name":7,"session_id":"a"})",
                                    R"({"hook_event_name":"Stop"})", R"({"type":"agent-turn-complete"})"}) {
    EXPECT_EQ(status(readClaudeEvent, payload), ExitStatus::failure) << payload;
    EXPECT_EQ(status(readCodexEvent, payload), ExitStatus::failure) << payload;
  }
  EXPECT_EQ(status(readClaudeEvent, hook("Notification")), ExitStatus::failure);
}

TEST(AgentEvents, CarryTheSessionAndTheTurnWhereReportsCan) {
  AgentEvent told{Meaning::turnEnds, {}, {}, session, "t-1"};
  EXPECT_EQ(told.context()->taskID, "t-1");
  told.turn = "a b";
  EXPECT_EQ(told.context(), (TerminalAgentReportedContext{*Uuid::parse(session), {}, {}}));
  told.agentSession = "no UUID";
  EXPECT_EQ(told.context(), std::nullopt);
}

// What each meaning does to a record: '-' nothing, 'b' bind, 'r' report, 'B' bind and report; in the order of
// the meanings.
std::string answers(const std::optional<AgentRecord>& record, const std::string& agentSession = "s",
                    const std::optional<std::string>& turn = {}, Seconds later = 1) {
  std::string text;
  for (int meaning = 0; meaning <= static_cast<int>(Meaning::sessionEnds); ++meaning) {
    const AgentEvent told{static_cast<Meaning>(meaning), {}, {}, agentSession, turn};
    const AgentAnswer answer = answerTo(told, TerminalAgentKind::codex, record, Date{later});
    text += answer.binds ? (answer.reports ? 'B' : 'b') : (answer.reports ? 'r' : '-');
  }
  return text;
}

TEST(AgentAnswers, LetNothingLateOrForeignChangeTheState) {
  AgentRecord working;
  working.kind = TerminalAgentKind::codex;
  working.grant = TerminalAgentGrant{};
  working.agentSession = "s";
  AgentRecord resting = working, over = working, inTurn = working, another = working, claude = working;
  resting.isAtRest = true;
  over.grant.reset();
  inTurn.turn = "t";
  claude.kind = TerminalAgentKind::claude;

  // begins, turn begins, goes on, blocks, turn ends, ends
  EXPECT_EQ(answers({}), "bBBBB-");
  EXPECT_EQ(answers(working), "-rrrrr");
  EXPECT_EQ(answers(resting), "-r--rr") << "no late event wakes a turn that ended";
  EXPECT_EQ(answers(over), "bB----") << "nor an agent that exited";
  EXPECT_EQ(answers(inTurn, "s", "t"), "-rrrrr");
  EXPECT_EQ(answers(inTurn, "s", "earlier"), "-r---r");
  EXPECT_EQ(answers(another, "inner"), "bB----") << "an agent in the agent takes over when it is spoken to";
  EXPECT_EQ(answers(claude), "bB----");
  EXPECT_EQ(answers(another, "inner", {}, 120), "bBBBB-") << "and when the other was not heard of";
  EXPECT_EQ(answers(another, "inner", {}, 119.9), "bB----");
}

}  // namespace
}  // namespace velotide::client
