#include <algorithm>
#include <utility>

#include "base/fatal.h"
#include "events/attention_store.h"

// What the events of the log mean for the items: an agent that waits or is done, a session that ended.
namespace velotide {

namespace {

using Activity = TerminalAgentActivity;
using BlockReason = TerminalAgentBlockReason;
using ItemKind = TerminalAttentionKind;

ItemKind kindFor(const std::optional<BlockReason>& reason) {
  if (!reason) return ItemKind::blocked;
  switch (*reason) {
    case BlockReason::approval:
      return ItemKind::approval;
    case BlockReason::question:
      return ItemKind::question;
    case BlockReason::other:
      return ItemKind::blocked;
  }
  fatal("an agent blocked for no reason");
}

// The one reason for which an agent must stay blocked for the item to stay. An agent that states none matches
// no item: each of its changes ends the old notice and raises a new one.
BlockReason expectedReason(ItemKind kind) {
  if (kind == ItemKind::approval) return BlockReason::approval;
  return kind == ItemKind::question ? BlockReason::question : BlockReason::other;
}

// Whether the agent moved on from what the item tells.
bool isOver(const TerminalAttentionItem& item, const TerminalAgentSnapshot& state) {
  if (item.instanceID != state.instanceID || item.runID != state.runID || item.context != state.context)
    return true;
  if (!requiresAnswer(item.kind)) return state.activity == Activity::working;
  const bool waitsAsBefore =
      state.activity == Activity::blocked && state.blockReason == expectedReason(item.kind);
  return state.activity != Activity::unknown && !waitsAsBefore;
}

// The notice that a finished piece of work deserves; nothing when it was seen before or deserves none.
std::optional<ItemKind> outcome(const TerminalAgentSnapshot& state,
                                const std::optional<TerminalAgentSnapshot>& before) {
  if (state.source != TerminalAgentSource::integration || state.reason != TerminalAgentReason::reported)
    return std::nullopt;
  if (state.activity != Activity::idle && state.activity != Activity::exited) return std::nullopt;
  if (before && before->lastResult == state.lastResult && before->runID == state.runID &&
      before->context == state.context)
    return std::nullopt;
  if (state.lastResult == TerminalAgentResult::completed) return ItemKind::completed;
  if (state.lastResult == TerminalAgentResult::failed) return ItemKind::failed;
  return std::nullopt;
}

}  // namespace

void TerminalAttentionStore::consume(const TerminalSessionEvent& event) {
  if (event.kind == TerminalSessionEventKind::closed) {
    consumeClosed(event.tabID, event.occurredAt);
  } else if (event.kind == TerminalSessionEventKind::agentChanged) {
    if (externalAgentTabs_.contains(event.tabID)) return;
    if (event.agent) {
      consumeAgent(event.tabID, *event.agent, event.occurredAt);
    } else {
      resolveAll(Concerned::agents, event.tabID, event.occurredAt);
      previous_.erase(event.tabID);
    }
  }
}

void TerminalAttentionStore::consumeClosed(const Uuid& tabID, Date now) {
  externalAgentTabs_.erase(tabID);
  externalTerminalTabs_.erase(tabID);
  externalCursors_.erase(tabID);
  externalAcknowledgement.erase(tabID);
  resolveAll(Concerned::everything, tabID, now);
  previous_.erase(tabID);
  terminalDeduplication_.remove(tabID);
  // The number of a session without items; nothing of it is active now.
  tabRevisions_.erase(tabID);
}

void TerminalAttentionStore::consumeAgent(const Uuid& tabID, const TerminalAgentSnapshot& state, Date now) {
  std::optional<TerminalAgentSnapshot> before;
  if (const auto seen = previous_.find(tabID); seen != previous_.end()) before = std::move(seen->second);
  previous_[tabID] = state;
  updateExisting(tabID, state, now);
  if (state.activity == Activity::blocked) {
    createIfNeeded(tabID, state, kindFor(state.blockReason), now);
  } else if (const std::optional<ItemKind> kind = outcome(state, before)) {
    createIfNeeded(tabID, state, *kind, now);
  }
}

void TerminalAttentionStore::updateExisting(const Uuid& tabID, const TerminalAgentSnapshot& state, Date now) {
  const std::size_t count = items_.size();
  for (std::size_t index = 0; index < std::min(count, items_.size()); ++index) {
    TerminalAttentionItem& item = items_[index];
    if (item.tabID != tabID || !item.isAgent() || item.resolvedAt) continue;
    if (isOver(item, state)) {
      resolve(index, now);
      continue;
    }
    const bool isStale = state.activity == Activity::unknown;
    if (!requiresAnswer(item.kind) || item.isStale == isStale) continue;
    item.isStale = isStale;
    increment(item.version);
    touch(tabID);
    emit(TerminalSessionEventKind::attentionUpdated, item);
  }
}

void TerminalAttentionStore::createIfNeeded(const Uuid& tabID, const TerminalAgentSnapshot& state,
                                            ItemKind kind, Date now) {
  const bool isNoticed = std::any_of(items_.begin(), items_.end(), [&](const TerminalAttentionItem& item) {
    return item.tabID == tabID && item.instanceID == state.instanceID && item.runID == state.runID &&
           item.kind == kind && !item.resolvedAt;
  });
  if (isNoticed) return;
  makeRoom();
  if (!hasRoom() && !requiresAnswer(kind)) return;
  TerminalAttentionItem item;
  item.tabID = tabID;
  item.instanceID = state.instanceID;
  item.runID = state.runID;
  item.kind = kind;
  item.createdAt = now;
  item.source = state.source;
  item.confidence = state.confidence;
  item.context = state.context;
  create(std::move(item));
}

}  // namespace velotide
