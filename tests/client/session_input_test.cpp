#include "client/session_input.h"

#include <gtest/gtest.h>

#include <string>

#include "client/session_names.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

using Kind = SessionInput::Kind;
using Outcome = SessionInput::Outcome;

// The service's side: one session that checks sequence numbers and control as the service does.
struct ScriptedSession {
  ScriptedSession() {
    info.id = Uuid::random();
    info.generation = Uuid::random();
    changeControl(std::nullopt);
  }

  TerminalRuntimeResponse answer(const TerminalRuntimeRequest& request) {
    TerminalRuntimeResponse response;
    response.id = request.id;
    response.error = refusal(request);
    response.ok = !response.error;
    if (response.ok && request.action == TerminalRuntimeAction::input)
      accept(std::string(textOf(request.data->head())));
    if (response.ok) response.session = info;
    return response;
  }

  void accept(const std::string& text) {
    written += text;
    ++info.nextInputSequence;
    ++info.revision;
  }

  void changeControl(std::optional<std::string> owner) {
    info.controlOwner = std::move(owner);
    info.controlEpoch = Uuid::random();
    info.nextInputSequence = 1;
    ++info.revision;
  }

  std::optional<std::string> refusal(const TerminalRuntimeRequest& request) const {
    if (request.generation != info.generation) return "generation_changed";
    if (request.action != TerminalRuntimeAction::input) return {};
    const bool isReply = request.source == TerminalRuntimeInputSource::protocolReply;
    if (!isReply && request.controlEpoch != info.controlEpoch) return "control_changed";
    if (request.inputSequence != info.nextInputSequence) return "control_changed";
    return {};
  }

  TerminalRuntimeSessionInfo info;
  std::string written;
};

struct Input : testing::Test {
  void type(const std::string& text, Kind kind = Kind::typed) { input.add(kind, bytesOf(text)); }
  // Sends until nothing is left to send, or the outcome is not fine.
  Outcome deliver() {
    while (const auto request = input.next()) {
      const Outcome outcome = input.accept(session.answer(*request));
      if (outcome != Outcome::fine) return outcome;
    }
    return Outcome::fine;
  }

  Outcome send(const std::string& text, Kind kind = Kind::typed) {
    type(text, kind);
    return deliver();
  }

  ScriptedSession session;
  SessionInput input{session.info};
};

TEST_F(Input, SendsExactlyTheRefusedInputAgainWhenOthersTyped) {
  type("one");
  const auto request = input.next();
  type("two");
  EXPECT_FALSE(input.next());
  session.accept("OTHER");
  EXPECT_EQ(Outcome::fine, input.accept(session.answer(*request)));
  EXPECT_EQ(Outcome::fine, deliver());
  session.changeControl(std::nullopt);
  EXPECT_EQ(Outcome::fine, send("three"));
  EXPECT_EQ("OTHERonetwothree", session.written);
  EXPECT_TRUE(input.empty());
}

TEST_F(Input, IsNotDoubledWhenTheAnswerWasLost) {
  type("once");
  const auto request = input.next();
  const TerminalRuntimeResponse remembered = session.answer(*request);
  session.info.revision += 5;   // the program printed meanwhile
  input.observe(session.info);  // on a new connection
  ASSERT_EQ(request->id, input.unanswered()->id);
  input.accept(remembered);
  EXPECT_EQ(Outcome::fine, send(" more"));
  EXPECT_EQ("once more", session.written);
  EXPECT_TRUE(input.isAnswering());
}

TEST_F(Input, AnswersOnlyWhereItWasTypedLastAndOnlyFirst) {
  type("\x1b[1R", Kind::reply);
  const auto late = input.next();
  session.accept("OTHER");
  input.accept(session.answer(*late));
  EXPECT_EQ(Outcome::fine, deliver());
  EXPECT_EQ("OTHER", session.written);
  input.observe(session.info);
  EXPECT_FALSE(input.isAnswering());
  send("x");
  EXPECT_TRUE(input.isAnswering());
  session.changeControl("claude");
  session.accept("agent");
  input.observe(session.info);
  EXPECT_TRUE(input.isAnswering());
  EXPECT_EQ(Outcome::fine, send("\x1b[0n", Kind::reply));
  EXPECT_TRUE(session.written.ends_with("agent\x1b[0n"));
}

TEST_F(Input, IsDroppedWhenTheSessionWasRestarted) {
  type("for the old program");
  session.info.generation = Uuid::random();
  EXPECT_EQ(Outcome::ended, deliver());
  EXPECT_TRUE(input.empty());
  input.observe(session.info);
  EXPECT_EQ(Outcome::fine, send("new"));
  EXPECT_EQ("new", session.written);
}

TEST(SessionNames, FitByUnambiguousBeginningInEitherCase) {
  std::vector<TerminalRuntimeSessionInfo> sessions(2);
  sessions[0].id = *Uuid::parse("AB000000-0000-0000-0000-000000000000");
  sessions[1].id = *Uuid::parse("AB010000-0000-0000-0000-000000000000");
  EXPECT_EQ(sessions[1].id, resolveName("ab01", sessions).id);
  EXPECT_EQ(sessions[0].id, resolveName(sessions[0].id.text(), sessions).id);
  for (const char* name : {"ab", "", "d", "AB000000-0000-0000-0000-0000000000001"})
    EXPECT_THROW(resolveName(name, sessions), Trouble) << name;
}

}  // namespace

}  // namespace velotide::client
