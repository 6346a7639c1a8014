#include "events/attention_store.h"

#include "attention_fixture.h"

namespace velotide {
namespace {

class AttentionStore : public AttentionFixture {};

TEST_F(AttentionStore, GathersTheBellsOfOneStream) {
  std::string unread;
  store.onUnreadChanged = [&](const Uuid&, bool has) { unread += has ? '+' : '-'; };
  const Uuid stream = Uuid::random();
  EXPECT_EQ(textOf(*ring(3, stream)), "bell v1 x3");
  EXPECT_EQ(textOf(*ring(2, stream)), "bell v2 x5");
  const Item other = *ring();
  const Item bell = store.items().front();
  EXPECT_EQ(takePublished(), "Created bell v1 x3, Updated bell v2 x5, Created bell v1");
  EXPECT_EQ(read(bell.id, bell.version), "Resolved bell v3 read resolved@100 x5");
  read(other.id, 1);
  EXPECT_EQ(unread, "++++-");
  ring(4, stream);
  EXPECT_EQ(takePublished(), "Created bell v1 x4");
}

TEST_F(AttentionStore, RecordsAnEventOnce) {
  const Uuid command = Uuid::random();
  EXPECT_EQ(textOf(*finish(command)), "commandCompleted v1");
  EXPECT_FALSE(finish(command, true));
  EXPECT_TRUE(finish(command, true, Context::Kind::processExited));
  EXPECT_FALSE(finish(command, true, Context::Kind::processExited));
  EXPECT_TRUE(finish(Uuid::random(), true));
  EXPECT_EQ(takePublished(),
            "Created commandCompleted v1, Created processExited v1, Created commandFailed v1");
  // Also after the person dismissed it, and however often the bell rang since; only 1,024 others make it
  // forgotten, and a repetition makes nothing younger.
  store.clear(now);
  for (int each = 0; each < 1024; ++each) ring();
  for (int each = 0; each < 1021; ++each) finish(Uuid::random());
  EXPECT_FALSE(finish(command));
  finish(Uuid::random());
  EXPECT_TRUE(finish(command));
}

TEST_F(AttentionStore, AcknowledgesByIdentifierAndVersion) {
  become(Activity::blocked, Block::question);
  const Item question = store.items().front();
  const Item bell = *ring();
  takePublished();
  EXPECT_EQ(read(Uuid::random(), 1), "notFound");
  EXPECT_EQ(read(question.id, 2), "staleVersion");
  EXPECT_EQ(read(question.id, 1), "Updated question v2 read");
  EXPECT_EQ(read(question.id, 1), "staleVersion");
  EXPECT_EQ(read(question.id, 2), "");
  EXPECT_EQ(read(bell.id, 1), "Resolved bell v2 read resolved@100");
  EXPECT_EQ(read(bell.id, 2), "notFound");
  EXPECT_EQ(store.items().back().readAt, now);
}

TEST_F(AttentionStore, OrdersWhatWaitsBeforeWhatInforms) {
  ring(1);
  ring(2);
  block(Uuid::random());
  const Item approval = store.items().back();
  block(Uuid::random(), Block::question);
  store.markRead(approval.id, 1, now);
  EXPECT_EQ(active(), "question v1, approval v2 read, bell v1, bell v1 x2");
  EXPECT_EQ(store.activeItems(tab).size(), 2U);
}

TEST_F(AttentionStore, MakesRoomAtTheExpenseOfTheOldestThatMayGo) {
  block(Uuid::random());
  const Item oldest = *ring();
  const Item second = *ring();
  while (store.items().size() < 256) finish(Uuid::random());
  store.clear(now);
  takePublished();
  // Everything is resolved: the approval, though it requires an answer, is the oldest.
  ring();
  EXPECT_EQ(takePublished(), "Created bell v1");
  EXPECT_EQ(store.items().size(), 256U);
  EXPECT_EQ(store.items().front().id, oldest.id);
  ring();
  EXPECT_EQ(store.items().front().id, second.id);
}

TEST_F(AttentionStore, ExceedsItsCapacityOnlyForWhatRequiresAnAnswer) {
  for (int each = 0; each < 255; ++each) block(Uuid::random());
  ring();
  EXPECT_EQ(store.items().size(), 256U);
  block(Uuid::random());
  EXPECT_EQ(store.items().size(), 256U);
  takePublished();

  const Uuid command = Uuid::random();
  EXPECT_FALSE(ring());
  EXPECT_FALSE(finish(command));
  EXPECT_EQ(become(Activity::idle, {}, Result::completed), "");
  EXPECT_EQ(become(Activity::blocked, Block::question), "Created question v1");
  EXPECT_EQ(store.items().size(), 257U);
  store.clear(now);
  // One leaves per attempt, so the first still finds no room; a refused notice was not noted as seen.
  const std::uint64_t before = store.revision();
  EXPECT_FALSE(finish(command));
  EXPECT_NE(store.revision(), before);
  EXPECT_TRUE(finish(command));
  EXPECT_EQ(store.items().size(), 256U);
}

TEST_F(AttentionStore, ClearsWhatItIsTold) {
  ring();
  EXPECT_EQ(become(Activity::idle, {}, Result::completed), "Created bell v1, Created completed v1");
  store.clearAgents(now);
  EXPECT_EQ(takePublished(), "Resolved completed v2 resolved@100");
  EXPECT_EQ(become(Activity::idle), "Created completed v1") << "what was seen of agents is forgotten";
  store.clear(now);
  EXPECT_EQ(takePublished(), "Resolved bell v2 resolved@100, Resolved completed v2 resolved@100");
  EXPECT_EQ(become(Activity::idle), "Created completed v1");

  become(Activity::blocked, Block::approval);
  block(Uuid::random());
  ring();
  takePublished();
  store.markViewed(tab, now);
  EXPECT_EQ(takePublished(),
            "Updated approval v2 read, Resolved completed v2 read resolved@100, Resolved bell v2 read "
            "resolved@100");
}

TEST_F(AttentionStore, NumbersTheChangesOfEachSession) {
  std::uint64_t seen = 0;
  const auto isNew = [&] {
    const std::uint64_t before = std::exchange(seen, store.revision(tab));
    return before != seen;
  };
  EXPECT_FALSE(isNew());
  const Item bell = *ring();
  EXPECT_TRUE(isNew());
  const std::uint64_t all = store.revision();
  block(Uuid::random());
  EXPECT_NE(store.revision(), all);
  EXPECT_FALSE(isNew());
  read(bell.id, 1);
  EXPECT_TRUE(isNew());
  for (const Activity next : {Activity::blocked, Activity::unknown, Activity::working}) {
    become(next, Block::approval);
    EXPECT_TRUE(isNew()) << rawWord(next);
  }
  ring();
  close();
  EXPECT_EQ(store.revision(tab), 0U);
  // What a closed session leaves behind is evicted without a trace of the session.
  for (int each = 0; each < 300; ++each) block(Uuid::random());
  EXPECT_EQ(store.revision(tab), 0U);
  EXPECT_EQ(store.activeView().size(), 301U);
}

}  // namespace
}  // namespace velotide
