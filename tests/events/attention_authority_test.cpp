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

TEST_F(AttentionAuthority, ReplacesWhatItManagesByItsList) {
  become(Activity::blocked, Block::approval);
  ring();
  takePublished();
  Item question = foreign(Kind::question), resolved = foreign(Kind::failed), elsewhere = resolved,
       terminal = foreign(Kind::bell);
  const Item done = foreign(Kind::completed);
  resolved.resolvedAt = now;
  elsewhere.tabID = Uuid::random();
  terminal.instanceID.reset();
  EXPECT_EQ(adopt({question, resolved, elsewhere, terminal, done}),
            "Resolved approval v2 resolved@786000000, Created question v7, Created completed v7");
  EXPECT_EQ(active(), "question v7, completed v7, bell v1");
  EXPECT_EQ(adopt({question, done}), "");
  question.version = 8;
  EXPECT_EQ(adopt({done, question}), "Updated question v8");
  EXPECT_EQ(store.items().back(), question);
  EXPECT_EQ(adopt({}), "Resolved completed v8 resolved@786000000, Resolved question v9 resolved@786000000");
  store.markRuntimeAuthorityExternal(tab);
  EXPECT_EQ(adopt({terminal}), "Resolved bell v2 resolved@786000000, Created bell v7");
  EXPECT_EQ(adopt({}), "Resolved bell v8 resolved@786000000");
}

TEST_F(AttentionAuthority, IgnoresListsThatArriveLateAndEndsWithItsSession) {
  const TerminalEventCursor early{Uuid::random(), 4}, late{early.appEpoch, 5}, restarted{Uuid::random(), 2};
  const Item item = foreign(Kind::question);
  EXPECT_EQ(adopt({item}, late), "Created question v7");
  EXPECT_EQ(adopt({}, early), "");
  EXPECT_EQ(adopt({}, late), "Resolved question v8 resolved@786000000");
  EXPECT_EQ(adopt({item}, restarted), "Created question v7");
  EXPECT_EQ(adopt({}), "Resolved question v8 resolved@786000000");
  close();
  EXPECT_EQ(adopt({item}, TerminalEventCursor{restarted.appEpoch, 1}), "Created question v7");
}

TEST_F(AttentionAuthority, AnswersForItsItems) {
  store.markAgentAuthorityExternal(tab);
  EXPECT_EQ(become(Activity::blocked, Block::approval), "") << "the rules are silent for its session";
  const Item question = foreign(Kind::question);
  adopt({question});
  const Item bell = *ring();
  takePublished();
  EXPECT_EQ(read(question.id, 6), "staleVersion");
  EXPECT_EQ(read(question.id, 7), "unavailable");
  std::string asked;
  store.externalAcknowledgement[tab] = [&](const Uuid& id, std::int64_t version) {
    asked += (id == bell.id ? "bell " : "question ") + std::to_string(version) + " ";
    return asked == "question 7 ";
  };
  EXPECT_EQ(read(question.id, 7), "");
  EXPECT_EQ(read(question.id, 7), "unavailable");
  store.markRuntimeAuthorityExternal(tab);
  store.markViewed(tab, now);
  EXPECT_EQ(active(), "question v7, bell v1");
  EXPECT_EQ(asked, "question 7 question 7 question 7 bell 1 ");
  close();
  EXPECT_TRUE(store.externalAcknowledgement.empty());
  EXPECT_EQ(become(Activity::blocked, Block::approval), "Created approval v1");
}

}  // namespace
}  // namespace velotide
