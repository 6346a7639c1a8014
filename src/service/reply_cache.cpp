#include "service/reply_cache.h"

namespace velotide {

const TerminalRuntimeResponse* ReplyCache::find(const Uuid& id) const {
  const auto found = replies_.find(id);
  return found == replies_.end() ? nullptr : &found->second;
}

void ReplyCache::store(const TerminalRuntimeResponse& response) {
  if (order_.size() >= capacity) {
    replies_.erase(order_.front());
    order_.pop_front();
  }
  order_.push_back(response.id);
  replies_.emplace(response.id, response);
}

}  // namespace velotide
