#include "attention_fixture.h"

namespace velotide {
namespace {

class AttentionAuthority : public AttentionFixture {
 protected:
  Item foreign(Kind kind, std::int64_t version = 7) const {
    Item item;
    item.id = Uuid::random();
    item.tabID = tab;
    item.instanceID = agent.instanceID;
    item.kind = kind;
    item.version = version;
    return item;
  }
  std::string adopt(const std::vector<Item>& items, std::optional<TerminalEventCursor> cursor = {}) {
    store.adoptAgentItems(items, tab, cursor);
    return takePublished();
  }
};

TEST_F(AttentionAuthority, SilencesTheRulesForItsSession) {
  store.markAgentAuthorityExternal(tab);
  EXPECT_EQ(become(Activity::blocked, Block::approval), "");
  EXPECT_TRUE(ring());
  block(Uuid::random());
  EXPECT_EQ(takePublished(), "Created bell v1, Created approval v1");
  // Governance ends with the session.
  close();
  EXPECT_EQ(become(Activity::blocked, Block::approval), "Created approval v1");
}

TEST_F(AttentionAuthority, ReplacesWhatItManagesByItsList) {
  become(Activity::blocked, Block::approval);
  ring();
  takePublished();
  Item question = foreign(Kind::question);
  const Item done = foreign(Kind::completed);
  Item resolved = foreign(Kind::failed);
  resolved.resolvedAt = now;
  Item elsewhere = foreign(Kind::failed);
  elsewhere.tabID = Uuid::random();
  Item terminal = foreign(Kind::bell);
  terminal.instanceID.reset();
  EXPECT_EQ(adopt({question, resolved, elsewhere, terminal, done}),
            "Resolved approval v2 resolved@786000000, Created question v7, Created completed v7");
  EXPECT_EQ(active(), "question v7, completed v7, bell v1");
  const std::uint64_t unchanged = store.revision();
  EXPECT_EQ(adopt({question, done}), "");
  EXPECT_EQ(store.revision(), unchanged);
  question.version = 8;
  EXPECT_EQ(adopt({question, done}), "Updated question v8");
  EXPECT_EQ(adopt({done, question}), "");
  EXPECT_EQ(store.items().back(), question);
  EXPECT_EQ(adopt({}), "Resolved completed v8 resolved@786000000, Resolved question v9 resolved@786000000");
  EXPECT_EQ(active(), "bell v1");

  store.markRuntimeAuthorityExternal(tab);
  EXPECT_EQ(adopt({terminal}), "Resolved bell v2 resolved@786000000, Created bell v7");
  const std::uint64_t before = store.revision(tab);
  adopt({});
  EXPECT_NE(store.revision(tab), before);
  EXPECT_EQ(active(), "");
}

TEST_F(AttentionAuthority, IgnoresListsThatArriveLate) {
  const Uuid epoch = Uuid::random();
  const Item item = foreign(Kind::question);
  EXPECT_EQ(adopt({item}, TerminalEventCursor{epoch, 5}), "Created question v7");
  EXPECT_EQ(adopt({}, TerminalEventCursor{epoch, 4}), "");
  EXPECT_EQ(adopt({}, TerminalEventCursor{epoch, 5}), "Resolved question v8 resolved@786000000");
  const Uuid restarted = Uuid::random();
  EXPECT_EQ(adopt({item}, TerminalEventCursor{restarted, 2}), "Created question v7");
  EXPECT_EQ(adopt({}), "Resolved question v8 resolved@786000000");
  close();
  EXPECT_EQ(adopt({item}, TerminalEventCursor{restarted, 1}), "Created question v7");
}

TEST_F(AttentionAuthority, AnswersForItsItems) {
  const Item question = foreign(Kind::question);
  adopt({question});
  const Item bell = *ring();
  takePublished();
  EXPECT_EQ(read(question.id, 6), "staleVersion");
  EXPECT_EQ(read(question.id, 7), "unavailable");
  std::string asked;
  bool accepts = true;
  store.externalAcknowledgement[tab] = [&](const Uuid& id, std::int64_t version) {
    asked += (id == bell.id ? "bell " : "question ") + std::to_string(version) + " ";
    return accepts;
  };
  EXPECT_EQ(read(question.id, 7), "");
  accepts = false;
  EXPECT_EQ(read(question.id, 7), "unavailable");
  EXPECT_EQ(active(), "question v7, bell v1");
  store.markRuntimeAuthorityExternal(tab);
  store.markViewed(tab, now);
  EXPECT_EQ(active(), "question v7, bell v1");
  EXPECT_EQ(asked, "question 7 question 7 question 7 bell 1 ");
  close();
  EXPECT_TRUE(store.externalAcknowledgement.empty());
  const Item later = *ring();
  takePublished();
  EXPECT_EQ(read(later.id, 1), "Resolved bell v2 read resolved@100");
}

}  // namespace
}  // namespace velotide
