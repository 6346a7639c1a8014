#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/utf8.h"

// Text as the matchers read it: UTF-16.
namespace velotide {

// Line feed, vertical tab, form feed, carriage return, next line, line and paragraph separator.
bool isNewline(char16_t unit);

bool isAscii(std::u16string_view text);
// Each invalid sequence becomes U+FFFD.
std::u16string toUtf16(std::string_view text);
std::string toUtf8(std::u16string_view text);

// Without the white space at both ends.
std::u16string_view trimmed(std::u16string_view text);

// Lower case independent of any language; written over `lower`, so that its memory serves again.
void lowerCase(std::u16string_view text, std::u16string& lower);

// The first `count` characters as a reader counts them (grapheme clusters), or all of a shorter text.
std::u16string_view firstCharacters(std::u16string_view text, std::size_t count);

}  // namespace velotide
