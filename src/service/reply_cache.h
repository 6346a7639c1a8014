#pragma once

#include <cstdint>
#include <deque>
#include <unordered_map>

#include "base/uuid.h"
#include "protocol/runtime_response.h"

namespace velotide {

// The answers to the newest mutating requests, by request ID: a client that lost an answer sends the request
// again and is answered without the action being repeated. Not tied to connections. Bounded: the oldest
// answer is forgotten when one more than the capacity is stored.
class ReplyCache {
 public:
  static constexpr std::size_t capacity = 1024;

  // Null when nothing is held under the ID; valid until the next store.
  const TerminalRuntimeResponse* find(const Uuid& id) const;
  // `response` goes under its own ID, which must not be held.
  void store(const TerminalRuntimeResponse& response);

 private:
  // Apart from the answers, so that a search stays within a few memory lines.
  std::unordered_map<Uuid, std::uint32_t> places_;
  std::deque<TerminalRuntimeResponse> replies_;
  // Of the oldest answer, which the next one replaces in its own memory once the cache is full.
  std::uint32_t oldest_ = 0;
};

}  // namespace velotide
