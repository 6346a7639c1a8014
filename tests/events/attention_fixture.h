#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "events/attention_store.h"
#include "support/manual_clock.h"
#include "support/refusal.h"

namespace velotide {

// A store over a log, and what it published since it was last asked.
class AttentionFixture : public testing::Test {
 protected:
  using Activity = TerminalAgentActivity;
  using Block = TerminalAgentBlockReason;
  using Context = TerminalAttentionTerminalContext;
  using Item = TerminalAttentionItem;
  using Kind = TerminalAttentionKind;
  using Result = TerminalAgentResult;

  AttentionFixture() {
    agent.instanceID = Uuid::random();
    agent.runID = Uuid::random();
    agent.reason = TerminalAgentReason::reported;
    log.observe([this](const TerminalSessionEvent& event) {
      if (!event.attention) return;
      EXPECT_EQ(event.occurredAt, clock.date());
      EXPECT_EQ(event.tabID, event.attention->tabID);
      if (event.kind == TerminalSessionEventKind::attentionCreated && event.attention->version == 1) {
        EXPECT_EQ(event.attention->createdSequence, event.cursor.sequence);
      }
      if (!published.empty()) published += ", ";
      published += std::string(rawWord(event.kind)).substr(9) + " " + textOf(*event.attention);
    });
  }

  // "kind vVERSION", then what is set of: read, resolved@TIME, stale, xOCCURRENCES.
  static std::string textOf(const Item& item) {
    std::string text = std::string(rawWord(item.kind)) + " v" + std::to_string(item.version);
    if (item.readAt) text += " read";
    if (item.resolvedAt) text += " resolved@" + std::to_string(int(item.resolvedAt->sinceReference));
    if (item.isStale) text += " stale";
    if (item.terminal && item.terminal->occurrences != 1)
      text += " x" + std::to_string(item.terminal->occurrences);
    return text;
  }
  std::string takePublished() { return std::exchange(published, {}); }
  std::string active() const {
    std::string text;
    for (const Item& item : store.activeItems()) text += (text.empty() ? "" : ", ") + textOf(item);
    return text;
  }

  // The agent changed; answers what the store made of it.
  std::string become(Activity activity, std::optional<Block> block = {}, std::optional<Result> result = {}) {
    agent.activity = activity;
    agent.blockReason = block;
    if (result) agent.lastResult = result;
    log.publish(tab, TerminalSessionEventKind::agentChanged, now, {.agent = agent});
    return takePublished();
  }
  void block(const Uuid& session, Block reason = Block::approval) {
    agent.activity = Activity::blocked;
    agent.blockReason = reason;
    log.publish(session, TerminalSessionEventKind::agentChanged, now, {.agent = agent});
  }
  std::string close() {
    log.publish(tab, TerminalSessionEventKind::closed, now);
    return takePublished();
  }
  std::optional<Item> ring(std::int64_t times = 1, const Uuid& stream = Uuid::random()) {
    return store.record({Context::Kind::bell, stream, {}, {}, false, times}, tab, now);
  }
  std::optional<Item> finish(const Uuid& command, bool failed = false,
                             Context::Kind kind = Context::Kind::commandFinished) {
    return store.record({kind, command, command, 1, failed}, tab, now);
  }
  std::string read(const Uuid& id, std::int64_t version) {
    const std::string word =
        refusal<TerminalAttentionMutationError>([&] { store.markRead(id, version, now); });
    EXPECT_TRUE(word.empty() || published.empty());
    return word.empty() ? takePublished() : word;
  }

  const Date now{100};
  const Uuid tab = Uuid::random();
  const ManualClock clock;
  TerminalSessionEventStore log{Uuid::random()};
  TerminalAttentionStore store{log, clock};
  TerminalAgentSnapshot agent;
  std::string published;
};

}  // namespace velotide
