#pragma once

#include <string_view>

#include "base/bytes.h"

namespace velotide {

// Whether the bytes are well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(ByteView bytes);

}  // namespace velotide
