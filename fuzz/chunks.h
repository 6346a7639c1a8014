#pragma once

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "base/bytes.h"

// What the fuzz targets share.
namespace velotide {

// The fuzzer's input as a stream in chunks: the first byte says how many cuts follow it, each a byte.
struct CutStream {
  explicit CutStream(ByteView input) {
    const std::size_t cuts = input.empty() ? 0 : std::min<std::size_t>(input[0], input.size() - 1);
    stream = input.subspan(input.empty() ? 0 : 1 + cuts);
    std::size_t at = 0;
    for (std::size_t cut = 0; cut < cuts && at < stream.size(); ++cut) {
      const std::size_t size = std::min<std::size_t>(input[1 + cut], stream.size() - at);
      chunks.push_back(stream.subspan(at, size));
      at += size;
    }
    chunks.push_back(stream.subspan(at));
  }

  ByteView stream;
  std::vector<ByteView> chunks;
};

// What must hold for every input.
inline void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace velotide
