#pragma once

#include <cstddef>
#include <deque>
#include <unordered_set>

#include "base/uuid.h"
#include "events/attention_item.h"

namespace velotide {

// Which terminal events were already turned into items. Bounded: past the capacity the oldest key is
// forgotten, and its event could be noticed again.
class TerminalAttentionDeduplication {
 public:
  static constexpr std::size_t capacity = 1024;

  bool contains(const Uuid& tabID, const TerminalAttentionTerminalContext& context) const;
  // True when the event was new. A repetition does not make it younger.
  bool insert(const Uuid& tabID, const TerminalAttentionTerminalContext& context);
  // Forgets every event of the session.
  void remove(const Uuid& tabID);

 private:
  struct Key {
    Uuid tabID;
    TerminalAttentionTerminalContext::Kind kind;
    Uuid eventID;

    bool operator==(const Key&) const = default;
  };
  struct KeyHash {
    std::size_t operator()(const Key& key) const noexcept;
  };

  static Key keyOf(const Uuid& tabID, const TerminalAttentionTerminalContext& context) {
    return {tabID, context.kind, context.eventID};
  }

  std::unordered_set<Key, KeyHash> keys_;
  // Oldest first.
  std::deque<Key> order_;
};

}  // namespace velotide
