#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

#include "base/bytes.h"

namespace velotide {

// Bytes filled in at the back and taken from the front: a client's two buffers, a session's pending input,
// the scratch of an encoder. Taking from the front costs nothing; the bytes move only when room is needed.
// The queue grows with its content; whoever fills it bounds it. Once empty it gives a large allocation back.
class ByteQueue {
 public:
  // What covers the ordinary traffic of a connection.
  static constexpr std::size_t ordinaryCapacity = 262144;

  // An empty queue keeps an allocation of up to `keptCapacity` bytes.
  explicit ByteQueue(std::size_t keptCapacity) : keptCapacity_(keptCapacity) {}
  ByteQueue() : ByteQueue(ordinaryCapacity) {}

  // Readable bytes that always follow the content, so that a vector scan may look past its end.
  static constexpr std::size_t padding = 32;

  std::size_t size() const { return end_ - begin_; }
  bool empty() const { return begin_ == end_; }
  ByteView view() const { return {storage_.get() + begin_, size()}; }
  std::string_view text() const { return textOf(view()); }

  // The content itself, for a parser that works in place; valid until the next change.
  std::span<char> mutableText() { return {reinterpret_cast<char*>(storage_.get() + begin_), size()}; }

  void append(ByteView bytes);
  void append(std::string_view text) { append(bytesOf(text)); }

  // Room for `count` bytes behind the content; `commit` makes the first of them content.
  std::span<std::uint8_t> reserve(std::size_t count) {
    if (capacity_ - end_ < count) makeRoom(count);
    return {storage_.get() + end_, count};
  }
  void commit(std::size_t count) { end_ += count; }

  // Takes bytes from the front, or drops them from the back; `count` is at most size().
  void consume(std::size_t count);
  void dropBack(std::size_t count) { end_ -= count; }
  void clear() { consume(size()); }

 private:
  void makeRoom(std::size_t count);

  std::size_t keptCapacity_;
  std::unique_ptr<std::uint8_t[]> storage_;
  std::size_t capacity_ = 0;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace velotide
