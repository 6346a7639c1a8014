#include "terminal/output_journal.h"

#include <algorithm>
#include <limits>

namespace velotide {

namespace {

std::size_t validCapacity(std::int64_t capacity) {
  if (capacity < 1 || capacity > TerminalRuntimeOutputJournal::maximumCapacity) {
    throw Failure(TerminalRuntimeOutputError::invalidCapacity);
  }
  return static_cast<std::size_t>(capacity);
}

}  // namespace

TerminalRuntimeOutputJournal::TerminalRuntimeOutputJournal(std::int64_t capacity, const Uuid& generation)
    : generation_(generation), storage_(validCapacity(capacity)) {}

void TerminalRuntimeOutputJournal::append(ByteView data) {
  if (data.empty()) return;
  if (data.size() > std::numeric_limits<std::uint64_t>::max() - endOffset_) {
    throw Failure(TerminalRuntimeOutputError::offsetOverflow);
  }
  const ByteView kept = data.last(std::min(data.size(), capacity()));
  endOffset_ += data.size();
  const std::size_t position = (endOffset_ - kept.size()) % capacity();
  const std::size_t beforeWrap = std::min(capacity() - position, kept.size());
  const auto ring = storage_.bytes().begin();
  std::ranges::copy(kept.first(beforeWrap), ring + static_cast<std::ptrdiff_t>(position));
  std::ranges::copy(kept.subspan(beforeWrap), ring);
  retained_ = std::min(retained_ + kept.size(), capacity());
}

TerminalRuntimeOutputBatch TerminalRuntimeOutputJournal::read(
    const std::optional<TerminalRuntimeOutputCursor>& after, std::int64_t limit) const {
  if (limit < 1 || static_cast<std::size_t>(limit) > capacity()) {
    throw Failure(TerminalRuntimeOutputError::invalidLimit);
  }
  if (after && after->generation != generation_) throw Failure(TerminalRuntimeOutputError::generationChanged);
  if (after && after->offset > endOffset_) throw Failure(TerminalRuntimeOutputError::futureCursor);

  const std::uint64_t wanted = after ? after->offset : 0;
  const std::uint64_t oldest = endOffset_ - retained_;
  const std::uint64_t start = std::max(wanted, oldest);
  const std::size_t count = std::min<std::size_t>(endOffset_ - start, static_cast<std::size_t>(limit));
  const std::size_t position = start % capacity();
  const std::size_t beforeWrap = std::min(capacity() - position, count);
  const ByteView ring = storage_.bytes();

  TerminalRuntimeOutputBatch batch;
  batch.data = CarriedBytes(ring.subspan(position, beforeWrap), ring.first(count - beforeWrap));
  batch.cursor = {generation_, start + count};
  batch.latestOffset = endOffset_;
  batch.hasGap = wanted < oldest;
  return batch;
}

}  // namespace velotide
