#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velotide::client {

enum class WatchKey {
  up,
  down,
  pageUp,
  pageDown,
  first,
  last,
  attach,
  acknowledge,
  close,
  yes,
  quit,
  suspend,
  redraw,
  other
};

// The keys in what a terminal sent at once, in their order. Sequences of keys that mean nothing here, pastes
// and mice among them, come as one `other`.
std::vector<WatchKey> watchKeys(std::string_view bytes);

}  // namespace velotide::client
