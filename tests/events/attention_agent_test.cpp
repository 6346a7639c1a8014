#include "attention_fixture.h"

namespace velotide {
namespace {

class AttentionToAgents : public AttentionFixture {};

TEST_F(AttentionToAgents, FollowsOneBlockFromRaisedToAnswered) {
  EXPECT_EQ(become(Activity::working), "");
  EXPECT_EQ(become(Activity::blocked, Block::approval), "Created approval v1");
  EXPECT_EQ(become(Activity::blocked, Block::approval), "");
  EXPECT_EQ(become(Activity::unknown), "Updated approval v2 stale");
  EXPECT_EQ(become(Activity::unknown), "");
  EXPECT_EQ(become(Activity::blocked, Block::approval), "Updated approval v3");
  EXPECT_EQ(become(Activity::blocked, Block::question),
            "Resolved approval v4 resolved@100, Created question v1");
  EXPECT_EQ(become(Activity::blocked, Block::other), "Resolved question v2 resolved@100, Created blocked v1");
  EXPECT_EQ(become(Activity::blocked, Block::other), "");
  for (const Activity moved : {Activity::working, Activity::idle, Activity::exited}) {
    become(Activity::blocked, Block::other);
    EXPECT_EQ(become(moved), "Resolved blocked v2 resolved@100");
  }
  EXPECT_EQ(active(), "");
}

TEST_F(AttentionToAgents, RaisesABlockWithoutAReasonAnewAtEachChange) {
  EXPECT_EQ(become(Activity::blocked), "Created blocked v1");
  EXPECT_EQ(become(Activity::blocked), "Resolved blocked v2 resolved@100, Created blocked v1");
  EXPECT_EQ(become(Activity::unknown), "Updated blocked v2 stale");
  EXPECT_EQ(become(Activity::blocked, Block::other), "Updated blocked v3");
}

TEST_F(AttentionToAgents, RaisesAnOutcomeOncePerRunAndContext) {
  become(Activity::working);
  EXPECT_EQ(become(Activity::idle, {}, Result::completed), "Created completed v1");
  EXPECT_EQ(become(Activity::exited, {}, Result::completed), "");
  EXPECT_EQ(become(Activity::unknown), "");
  EXPECT_EQ(become(Activity::blocked, Block::question), "Created question v1");
  EXPECT_EQ(become(Activity::working),
            "Resolved completed v2 resolved@100, Resolved question v2 resolved@100");
  EXPECT_EQ(become(Activity::idle, {}, Result::completed), "");
  EXPECT_EQ(become(Activity::idle, {}, Result::failed), "Created failed v1");

  agent.context = TerminalAgentReportedContext{Uuid::random(), "task", {}};
  EXPECT_EQ(become(Activity::idle), "Resolved failed v2 resolved@100, Created failed v1");
  EXPECT_EQ(store.activeItems().front().context, agent.context);
  agent.runID = Uuid::random();
  EXPECT_EQ(become(Activity::idle), "Resolved failed v2 resolved@100, Created failed v1");

  EXPECT_EQ(become(Activity::idle, {}, Result::interrupted), "");
  EXPECT_EQ(become(Activity::idle, {}, Result::unknown), "");
  // The same kind is not raised twice while the first is unresolved.
  EXPECT_EQ(become(Activity::idle, {}, Result::failed), "");
}

TEST_F(AttentionToAgents, BelievesOutcomesOnlyFromReportsAndCopiesWhatTheySay) {
  agent.source = TerminalAgentSource::shellCommand;
  agent.confidence = TerminalAgentConfidence::low;
  EXPECT_EQ(become(Activity::idle, {}, Result::completed), "");
  become(Activity::blocked, Block::approval);
  const Item item = store.activeItems().front();
  EXPECT_EQ(std::tie(item.tabID, item.instanceID, item.runID, item.createdAt, item.source, item.confidence),
            std::tuple(tab, agent.instanceID, agent.runID, now, agent.source, agent.confidence));
  become(Activity::working, {}, Result::interrupted);
  agent.source = TerminalAgentSource::integration;
  agent.reason = TerminalAgentReason::processExited;
  EXPECT_EQ(become(Activity::exited, {}, Result::failed), "");
  agent.reason = TerminalAgentReason::reported;
  EXPECT_EQ(become(Activity::working, {}, Result::completed), "");
}

TEST_F(AttentionToAgents, ResolvesTheNoticesOfAnotherInstanceOrRunFirst) {
  become(Activity::blocked, Block::approval);
  agent.runID = Uuid::random();
  EXPECT_EQ(become(Activity::blocked, Block::approval),
            "Resolved approval v2 resolved@100, Created approval v1");
  agent.instanceID = Uuid::random();
  EXPECT_EQ(become(Activity::unknown), "Resolved approval v2 resolved@100");
  become(Activity::blocked, Block::question);
  block(Uuid::random());
  ring();
  takePublished();
  log.publish(tab, TerminalSessionEventKind::agentChanged, now);
  EXPECT_EQ(takePublished(), "Resolved question v2 resolved@100");
  EXPECT_EQ(active(), "approval v1, bell v1");
  EXPECT_EQ(become(Activity::idle, {}, Result::completed), "Created completed v1");
  log.publish(tab, TerminalSessionEventKind::agentChanged, now);
  takePublished();
  EXPECT_EQ(become(Activity::idle), "Created completed v1") << "what is gone was forgotten";
}

TEST_F(AttentionToAgents, EndsEverythingOfAClosedSession) {
  block(Uuid::random());
  become(Activity::blocked, Block::approval);
  const Uuid command = Uuid::random();
  finish(command);
  takePublished();
  EXPECT_EQ(close(), "Resolved approval v2 resolved@100, Resolved commandCompleted v2 resolved@100");
  EXPECT_EQ(active(), "approval v1");
  EXPECT_TRUE(finish(command));
  // What was seen of its agent is forgotten too.
  EXPECT_EQ(become(Activity::idle, {}, Result::completed),
            "Created commandCompleted v1, Created completed v1");
  close();
  EXPECT_EQ(become(Activity::idle, {}, Result::completed), "Created completed v1");
}

}  // namespace
}  // namespace velotide
