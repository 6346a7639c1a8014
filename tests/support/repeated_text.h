#pragma once

#include <string>
#include <string_view>

namespace velotide {

inline std::string repeat(std::string_view piece, std::size_t count) {
  std::string text;
  while (count-- > 0) text += piece;
  return text;
}

}  // namespace velotide
