#include "base/fatal.h"

#include <cstdio>
#include <cstdlib>

namespace velotide {

void fatal(std::string_view what) {
  std::fprintf(stderr, "velotide: fatal: %.*s\n", static_cast<int>(what.size()), what.data());
  std::abort();
}

}  // namespace velotide
