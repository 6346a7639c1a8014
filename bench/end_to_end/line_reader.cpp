#include "end_to_end/line_reader.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "end_to_end/waiting.h"

namespace velotide::bench {

bool LineReader::fill(int descriptor) {
  if (begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    searched_ -= begin_;
    end_ -= begin_;
    begin_ = 0;
  }
  if (end_ == buffer_.size()) throw std::runtime_error("a line without end");
  const std::size_t count = readSome(descriptor, std::span<char>(buffer_).subspan(end_));
  end_ += count;
  return count > 0;
}

std::optional<std::string_view> LineReader::next() {
  const auto from = buffer_.begin() + static_cast<std::ptrdiff_t>(searched_);
  const auto to = buffer_.begin() + static_cast<std::ptrdiff_t>(end_);
  const auto feed = static_cast<const char*>(std::memchr(&*from, '\n', static_cast<std::size_t>(to - from)));
  if (feed == nullptr) {
    searched_ = end_;
    return std::nullopt;
  }
  const std::string_view line(buffer_.data() + begin_,
                              static_cast<std::size_t>(feed - buffer_.data()) - begin_);
  begin_ = searched_ = begin_ + line.size() + 1;
  return line;
}

}  // namespace velotide::bench
