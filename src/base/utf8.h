#pragma once

#include <string_view>

#include "base/bytes.h"

// Text as it travels: UTF-8.
namespace velotide {

// Whether the bytes are well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(ByteView bytes);
bool isAscii(std::string_view text);

// The first or last Unicode scalar of a text that is not empty; the text loses its bytes. U+FFFD stands for
// bytes that are no UTF-8.
char32_t takeFirstScalar(std::string_view& text);
char32_t takeLastScalar(std::string_view& text);

// Unicode white space, line ends included.
bool isWhiteSpace(char32_t scalar);
// Without the white space at both ends.
std::string_view trimmed(std::string_view text);
// The next word of `text`, which loses it and the white space before it; empty at its end.
std::string_view takeWord(std::string_view& text);

}  // namespace velotide
