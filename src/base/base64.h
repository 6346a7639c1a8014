#pragma once

#include <optional>
#include <string_view>

#include "base/byte_queue.h"
#include "base/bytes.h"

namespace velotide {

// Standard base64 with padding, no line breaks.

// Appends the encoding of `bytes`, which may rest in two pieces, to `out` without another copy.
void appendBase64(ByteQueue& out, const CarriedBytes& bytes);

// Nothing unless `text` is base64 from end to end: no white space, padding only at the end.
std::optional<Bytes> decodeBase64(std::string_view text);

}  // namespace velotide
