#include "base/unicode_scalar.h"

#include <unicode/utf8.h>

#include <cstdint>

#include "base/bytes.h"

namespace velotide {

char32_t takeFirstScalar(std::string_view& text) {
  std::int64_t at = 0;
  const auto length = static_cast<std::int64_t>(text.size());
  UChar32 scalar = 0;
  U8_NEXT_OR_FFFD(bytesOf(text).data(), at, length, scalar);
  text.remove_prefix(static_cast<std::size_t>(at));
  return static_cast<char32_t>(scalar);
}

char32_t takeLastScalar(std::string_view& text) {
  // No scalar takes more bytes than this, and the library counts with 32 bits here.
  const std::size_t before = text.size() > 8 ? text.size() - 8 : 0;
  std::int32_t at = static_cast<std::int32_t>(text.size() - before);
  UChar32 scalar = 0;
  U8_PREV_OR_FFFD(bytesOf(text.substr(before)).data(), 0, at, scalar);
  text = text.substr(0, before + static_cast<std::size_t>(at));
  return static_cast<char32_t>(scalar);
}

}  // namespace velotide
