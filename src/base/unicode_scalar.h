#pragma once

#include <string_view>

namespace velotide {

// The first or last Unicode scalar of a text that is not empty; the text loses its bytes. U+FFFD stands for
// bytes that are no UTF-8.
char32_t takeFirstScalar(std::string_view& text);
char32_t takeLastScalar(std::string_view& text);

}  // namespace velotide
