#include "events/attention_store.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "base/failure.h"
#include "base/fatal.h"

namespace velotide {

using Kind = TerminalSessionEventKind;
using Item = TerminalAttentionItem;

TerminalAttentionStore::TerminalAttentionStore(TerminalSessionEventStore& events, const Clock& clock)
    : events_(events),
      clock_(clock),
      observation_(events.observe(
          [this, alive = std::weak_ptr<const bool>(alive_)](const TerminalSessionEvent& event) {
            if (!alive.expired()) consume(event);
          })) {}

TerminalAttentionStore::~TerminalAttentionStore() { events_.removeObserver(observation_); }

std::span<const Item* const> TerminalAttentionStore::activeView() const {
  if (activeRevision_ == revision_) return active_;
  active_.clear();
  for (const Item& item : items_) {
    if (!item.resolvedAt) active_.push_back(&item);
  }
  // The place among the items keeps equal ones in their order.
  const auto rank = [](const Item* item) {
    return std::tuple(!requiresAnswer(item->kind), item->readAt.has_value(), item->createdSequence, item);
  };
  std::sort(active_.begin(), active_.end(),
            [&](const Item* one, const Item* other) { return rank(one) < rank(other); });
  activeRevision_ = revision_;
  return active_;
}

std::vector<Item> TerminalAttentionStore::activeItems() const {
  std::vector<Item> copies;
  copies.reserve(activeView().size());
  for (const Item* item : activeView()) copies.push_back(*item);
  return copies;
}

std::vector<Item> TerminalAttentionStore::activeItems(const Uuid& tabID) const {
  std::vector<Item> copies;
  for (const Item* item : activeView()) {
    if (item->tabID == tabID) copies.push_back(*item);
  }
  return copies;
}

bool TerminalAttentionStore::hasUnread(const Uuid& tabID) const {
  return std::any_of(items_.begin(), items_.end(), [&](const Item& item) {
    return item.tabID == tabID && !item.resolvedAt && !item.readAt;
  });
}

std::uint64_t TerminalAttentionStore::revision(const Uuid& tabID) const {
  const auto found = tabRevisions_.find(tabID);
  return found == tabRevisions_.end() ? 0 : found->second;
}

std::optional<Item> TerminalAttentionStore::record(const TerminalAttentionTerminalContext& context,
                                                   const Uuid& tabID, Date now) {
  const bool isBell = context.kind == TerminalAttentionTerminalContext::Kind::bell;
  if (!isBell && terminalDeduplication_.contains(tabID, context)) return std::nullopt;
  if (isBell) {
    const auto ringing = std::find_if(items_.begin(), items_.end(), [&](const Item& item) {
      return item.tabID == tabID && !item.resolvedAt && item.terminal &&
             item.terminal->kind == context.kind && item.terminal->eventID == context.eventID;
    });
    if (ringing != items_.end()) {
      ringing->terminal->occurrences += context.occurrences;
      increment(ringing->version);
      touch(tabID);
      Item updated = *ringing;
      emit(Kind::attentionUpdated, updated);
      return updated;
    }
  }
  makeRoom();
  if (!hasRoom()) return std::nullopt;
  if (!isBell) terminalDeduplication_.insert(tabID, context);
  Item item;
  item.tabID = tabID;
  item.kind = context.attentionKind();
  item.createdAt = now;
  item.terminal = context;
  return create(std::move(item));
}

void TerminalAttentionStore::makeRoom() {
  if (hasRoom()) return;
  const auto evicted = std::find_if(items_.begin(), items_.end(), [](const Item& item) {
    return item.resolvedAt || !requiresAnswer(item.kind);
  });
  if (evicted == items_.end()) return;
  const Uuid tabID = evicted->tabID;
  // A resolved item was on no list, and its session may be gone.
  if (evicted->resolvedAt) {
    increment(revision_);
  } else {
    touch(tabID);
  }
  items_.erase(evicted);
  tellUnread(tabID);
}

Item TerminalAttentionStore::create(Item item) {
  item.id = Uuid::random();
  item.createdSequence = events_.sequence() + 1;
  items_.push_back(item);
  touch(item.tabID);
  emit(Kind::attentionCreated, item);
  return item;
}

void TerminalAttentionStore::resolve(std::size_t index, Date now) {
  Item& item = items_[index];
  item.resolvedAt = now;
  increment(item.version);
  touch(item.tabID);
  emit(Kind::attentionResolved, item);
}

void TerminalAttentionStore::resolveAll(Concerned concerned, const std::optional<Uuid>& tabID, Date now) {
  // Compared against the live size as well: whoever is told of a resolution may make the list shorter.
  const std::size_t count = items_.size();
  for (std::size_t index = 0; index < std::min(count, items_.size()); ++index) {
    const Item& item = items_[index];
    if (item.resolvedAt || (tabID && item.tabID != *tabID)) continue;
    if (concerned == Concerned::agents && !item.isAgent()) continue;
    resolve(index, now);
  }
}

void TerminalAttentionStore::markRead(const Uuid& id, std::int64_t version, Date now) {
  if (const std::optional<MutationError> refused = acknowledge(id, version, now)) throw Failure(*refused);
}

std::optional<TerminalAttentionMutationError> TerminalAttentionStore::acknowledge(const Uuid& id,
                                                                                  std::int64_t version,
                                                                                  Date now) {
  const auto item = std::find_if(items_.begin(), items_.end(),
                                 [&](const Item& held) { return held.id == id && !held.resolvedAt; });
  if (item == items_.end()) return MutationError::notFound;
  if (item->version != version) return MutationError::staleVersion;
  if (item->readAt) return std::nullopt;
  if (isExternal(*item)) {
    if (forwardAcknowledgement(*item)) return std::nullopt;
    return MutationError::unavailable;
  }
  item->readAt = now;
  increment(item->version);
  if (!requiresAnswer(item->kind)) item->resolvedAt = now;
  touch(item->tabID);
  emit(item->resolvedAt ? Kind::attentionResolved : Kind::attentionUpdated, *item);
  return std::nullopt;
}

void TerminalAttentionStore::markViewed(const Uuid& tabID, Date now) {
  for (const Item& item : activeItems(tabID)) acknowledge(item.id, item.version, now);
}

void TerminalAttentionStore::clear(Date now) {
  resolveAll(Concerned::everything, std::nullopt, now);
  previous_.clear();
}

void TerminalAttentionStore::clearAgents(Date now) {
  resolveAll(Concerned::agents, std::nullopt, now);
  previous_.clear();
}

void TerminalAttentionStore::tellUnread(const Uuid& tabID) const {
  if (onUnreadChanged) onUnreadChanged(tabID, hasUnread(tabID));
}

void TerminalAttentionStore::emit(Kind kind, Item item) {
  const Uuid tabID = item.tabID;
  tellUnread(tabID);
  events_.publish(tabID, kind, clock_.date(), {.attention = std::move(item)});
}

}  // namespace velotide
