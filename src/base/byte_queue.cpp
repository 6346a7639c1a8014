#include "base/byte_queue.h"

#include <algorithm>
#include <cstring>

namespace velotide {

void ByteQueue::append(ByteView bytes) {
  if (bytes.empty()) return;
  std::memcpy(reserve(bytes.size()).data(), bytes.data(), bytes.size());
  commit(bytes.size());
}

void ByteQueue::consume(std::size_t count) {
  begin_ += count;
  if (begin_ != end_) return;
  begin_ = end_ = 0;
  if (capacity_ > keptCapacity_) {
    storage_.reset();
    capacity_ = 0;
  }
}

void ByteQueue::makeRoom(std::size_t count) {
  const std::size_t held = size();
  // Moving down pays only when it frees more than it moves; otherwise a queue that is always nearly full
  // would move its content for every few bytes taken.
  if (capacity_ >= held + count && begin_ >= held) {
    std::memmove(storage_.get(), storage_.get() + begin_, held);
  } else {
    const std::size_t wanted = std::max({held + count, capacity_ * 2, std::size_t{4096}});
    auto grown = std::make_unique_for_overwrite<std::uint8_t[]>(wanted + padding);
    if (held > 0) std::memcpy(grown.get(), storage_.get() + begin_, held);
    storage_ = std::move(grown);
    capacity_ = wanted;
  }
  begin_ = 0;
  end_ = held;
}

}  // namespace velotide
