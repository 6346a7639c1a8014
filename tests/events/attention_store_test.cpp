#include "events/attention_store.h"

#include <map>

#include "attention_fixture.h"

namespace velotide {
namespace {

class AttentionStore : public AttentionFixture {};

TEST_F(AttentionStore, GathersTheBellsOfOneStream) {
  const Uuid stream = Uuid::random();
  EXPECT_EQ(textOf(*ring(3, stream)), "bell v1 x3");
  EXPECT_EQ(textOf(*ring(2, stream)), "bell v2 x5");
  ring(1);
  const Item bell = store.items().front();
  EXPECT_EQ(takePublished(), "Created bell v1 x3, Updated bell v2 x5, Created bell v1");
  EXPECT_EQ(read(bell.id, bell.version), "Resolved bell v3 read resolved@100 x5");
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
  // Also after the person dismissed it, and however often the bell rang since.
  store.clear(now);
  for (int each = 0; each < 1024; ++each) ring();
  EXPECT_FALSE(finish(command));
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
  const Item first = *ring();
  ring(2);
  block(Uuid::random());
  const Item approval = store.items().back();
  block(Uuid::random(), Block::question);
  store.markRead(approval.id, 1, now);
  EXPECT_EQ(active(), "question v1, approval v2 read, bell v1, bell v1 x2");
  store.markRead(first.id, 1, now);
  EXPECT_EQ(active(), "question v1, approval v2 read, bell v1 x2");
  EXPECT_EQ(store.activeItems(tab).size(), 1U);

  // Items of equal rank stay in their order: adopted ones may carry any sequence, and may be read.
  std::vector<Item> adopted(3, approval);
  for (std::size_t each = 0; each < 3; ++each) {
    adopted[each].id = Uuid::random();
    adopted[each].version = std::int64_t(each + 10);
    adopted[each].createdSequence = each == 2 ? 1 : 2;
    adopted[each].kind = Kind::completed;
    adopted[each].readAt = now;
  }
  store.adoptAgentItems(adopted, approval.tabID, {});
  EXPECT_EQ(active(), "question v1, bell v1 x2, completed v12 read, completed v10 read, completed v11 read");
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
  become(Activity::blocked, Block::approval);
  ring();
  takePublished();
  store.clearAgents(now);
  EXPECT_EQ(takePublished(), "Resolved approval v2 resolved@100");
  become(Activity::idle, {}, Result::completed);
  store.clearAgents(now);
  takePublished();
  EXPECT_EQ(become(Activity::idle), "Created completed v1");
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

TEST_F(AttentionStore, TellsWhetherASessionHasUnread) {
  std::map<Uuid, bool> unread;
  store.onUnreadChanged = [&](const Uuid& session, bool has) {
    unread[session] = has;
    EXPECT_EQ(has, store.hasUnread(session));
  };
  const Item bell = *ring();
  EXPECT_TRUE(unread[tab]);
  read(bell.id, 1);
  EXPECT_FALSE(unread[tab]);
  ring();
  for (int each = 0; each < 256; ++each) block(Uuid::random());
  EXPECT_FALSE(unread[tab]) << "the last eviction took its only item";
}

TEST_F(AttentionStore, NumbersTheChangesOfEachSession) {
  const Uuid other = Uuid::random();
  EXPECT_EQ(store.revision(tab), 0U);
  const Item bell = *ring();
  const std::uint64_t all = store.revision();
  const std::uint64_t mine = store.revision(tab);
  EXPECT_NE(mine, 0U);
  EXPECT_EQ(store.activeView().data(), store.activeView().data());
  block(other);
  EXPECT_NE(store.revision(), all);
  EXPECT_EQ(store.revision(tab), mine);
  read(bell.id, 1);
  EXPECT_NE(store.revision(tab), mine);
  const std::uint64_t before = store.revision();
  EXPECT_EQ(store.activeView().size(), 1U);
  EXPECT_EQ(store.revision(), before);
  std::uint64_t seen = store.revision(tab);
  for (const Activity next : {Activity::blocked, Activity::unknown, Activity::working}) {
    become(next, next == Activity::blocked ? std::optional(Block::approval) : std::nullopt);
    EXPECT_NE(std::exchange(seen, store.revision(tab)), store.revision(tab)) << rawWord(next);
  }
  ring();
  close();
  EXPECT_EQ(store.revision(tab), 0U);
  // What a closed session leaves behind is evicted without a trace of the session.
  for (int each = 0; each < 300; ++each) block(Uuid::random());
  EXPECT_EQ(store.revision(tab), 0U);
  EXPECT_EQ(store.activeView().size(), 301U);
  for (const Item* item : store.activeView()) EXPECT_FALSE(item->resolvedAt);
}

}  // namespace
}  // namespace velotide
