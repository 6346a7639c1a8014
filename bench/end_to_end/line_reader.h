#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace velotide::bench {

// Cuts what arrives on a socket into lines. Bounded: a line of more than 2 MiB is a failure.
class LineReader {
 public:
  LineReader() : buffer_(2 * 1024 * 1024) {}

  // Reads once from a ready descriptor; false at the end of the stream. Lines handed out before are gone.
  bool fill(int descriptor);
  // The next complete line, if it has arrived.
  std::optional<std::string_view> next();

 private:
  std::vector<char> buffer_;
  std::size_t begin_ = 0;
  std::size_t searched_ = 0;
  std::size_t end_ = 0;
};

}  // namespace velotide::bench
