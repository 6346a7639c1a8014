#include "events/attention_deduplication.h"

#include <functional>

namespace velotide {

std::size_t TerminalAttentionDeduplication::KeyHash::operator()(const Key& key) const noexcept {
  // The identifiers are random, but one may be both the session and the event: shift before mixing.
  return std::hash<Uuid>{}(key.tabID) * 31 + std::hash<Uuid>{}(key.eventID) +
         static_cast<std::size_t>(key.kind);
}

bool TerminalAttentionDeduplication::contains(const Uuid& tabID,
                                              const TerminalAttentionTerminalContext& context) const {
  return keys_.contains(keyOf(tabID, context));
}

bool TerminalAttentionDeduplication::insert(const Uuid& tabID,
                                            const TerminalAttentionTerminalContext& context) {
  const Key key = keyOf(tabID, context);
  if (!keys_.insert(key).second) return false;
  order_.push_back(key);
  if (order_.size() > capacity) {
    keys_.erase(order_.front());
    order_.pop_front();
  }
  return true;
}

void TerminalAttentionDeduplication::remove(const Uuid& tabID) {
  const auto concerns = [&](const Key& key) { return key.tabID == tabID; };
  std::erase_if(order_, concerns);
  std::erase_if(keys_, concerns);
}

}  // namespace velotide
