#include "service/reply_cache.h"

namespace velotide {

const TerminalRuntimeResponse* ReplyCache::find(const Uuid& id) const {
  const auto found = places_.find(id);
  return found == places_.end() ? nullptr : &replies_[found->second];
}

void ReplyCache::store(const TerminalRuntimeResponse& response) {
  if (replies_.size() < capacity) {
    places_.emplace(response.id, static_cast<std::uint32_t>(replies_.size()));
    replies_.push_back(response);
    return;
  }
  places_.erase(replies_[oldest_].id);
  places_.emplace(response.id, oldest_);
  replies_[oldest_] = response;
  oldest_ = (oldest_ + 1) % capacity;
}

}  // namespace velotide
