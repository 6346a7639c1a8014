#pragma once

#include <cstdint>
#include <optional>

#include "base/bytes.h"
#include "base/failure.h"
#include "base/uuid.h"
#include "base/zeroed_region.h"
#include "protocol/limits.h"
#include "protocol/output_cursor.h"

namespace velotide {

// Why a journal refused; thrown as Failure.
enum class TerminalRuntimeOutputError {
  invalidCapacity,
  invalidLimit,
  generationChanged,
  futureCursor,
  offsetOverflow,
};

struct TerminalRuntimeOutputBatch {
  // Borrowed from the journal, valid until its next append.
  CarriedBytes data;
  // Where the next read continues.
  TerminalRuntimeOutputCursor cursor;
  std::uint64_t latestOffset = 0;
  // Bytes that the read still wanted were already overwritten.
  bool hasGap = false;
};

// The newest output of one session, addressed by absolute byte offset.
// Bounded: past the capacity the oldest bytes are overwritten, and a read that still wanted them says so with
// hasGap instead of failing. Memory is touched only as output fills it.
class TerminalRuntimeOutputJournal {
 public:
  static constexpr std::int64_t defaultCapacity = TerminalRuntimeLimits::maximumResponseBytes;
  static constexpr std::int64_t maximumCapacity = 16777216;

  // Throws Failure<TerminalRuntimeOutputError> unless 1 <= capacity <= maximumCapacity.
  TerminalRuntimeOutputJournal(std::int64_t capacity, const Uuid& generation);

  // Throws offsetOverflow, with nothing changed, when the offsets would pass 2^64.
  void append(ByteView data);

  // At most `limit` bytes behind `after`, or from the oldest byte still held when it is absent.
  // Throws invalidLimit, generationChanged or futureCursor.
  TerminalRuntimeOutputBatch read(const std::optional<TerminalRuntimeOutputCursor>& after,
                                  std::int64_t limit) const;

  const Uuid& generation() const { return generation_; }
  std::uint64_t endOffset() const { return endOffset_; }
  std::size_t retainedBytes() const { return retained_; }
  // The position behind everything written so far.
  TerminalRuntimeOutputCursor cursor() const { return {generation_, endOffset_}; }

 private:
  std::size_t capacity() const { return storage_.bytes().size(); }

  Uuid generation_;
  ZeroedRegion storage_;  // the byte at offset X rests at X modulo capacity
  std::uint64_t endOffset_ = 0;
  std::size_t retained_ = 0;
};

}  // namespace velotide
