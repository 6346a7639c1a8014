#include "base/utf8.h"

#include <unicode/utf8.h>

#include <cstdint>

namespace velotide {

bool isValidUtf8(ByteView bytes) {
  const auto size = static_cast<std::int64_t>(bytes.size());
  for (std::int64_t at = 0; at < size;) {
    UChar32 character;
    U8_NEXT(bytes.data(), at, size, character);
    if (character < 0) return false;
  }
  return true;
}

}  // namespace velotide
