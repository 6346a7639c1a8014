#include "base/utf8.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <cstdint>

namespace velotide {

bool isValidUtf8(ByteView bytes) {
  if (isAscii(textOf(bytes))) return true;
  const auto size = static_cast<std::int64_t>(bytes.size());
  for (std::int64_t at = 0; at < size;) {
    UChar32 scalar;
    U8_NEXT(bytes.data(), at, size, scalar);
    if (scalar < 0) return false;
  }
  return true;
}

bool isAscii(std::string_view text) {
  std::uint8_t bits = 0;
  for (const char unit : text) bits = static_cast<std::uint8_t>(bits | static_cast<std::uint8_t>(unit));
  return bits < 0x80;
}

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

bool isWhiteSpace(char32_t scalar) {
  if (scalar < 0x80) return scalar == ' ' || (scalar >= '\t' && scalar <= '\r');
  return u_isUWhiteSpace(static_cast<UChar32>(scalar)) != 0;
}

std::string_view trimmed(std::string_view text) {
  for (std::string_view rest = text; !rest.empty() && isWhiteSpace(takeFirstScalar(rest));) text = rest;
  for (std::string_view rest = text; !rest.empty() && isWhiteSpace(takeLastScalar(rest));) text = rest;
  return text;
}

std::string_view takeWord(std::string_view& text) {
  text = trimmed(text);
  std::string_view behind = text;
  for (std::string_view rest = text; !rest.empty() && !isWhiteSpace(takeFirstScalar(rest));) behind = rest;
  const std::string_view word = text.substr(0, text.size() - behind.size());
  text = behind;
  return word;
}

}  // namespace velotide
