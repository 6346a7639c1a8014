#include "client/watch_keys.h"

#include <array>
#include <utility>

namespace velotide::client {

namespace {

WatchKey plainKey(char byte) {
  switch (byte) {
    case 'k':
      return WatchKey::up;
    case 'j':
      return WatchKey::down;
    case 'g':
      return WatchKey::first;
    case 'G':
      return WatchKey::last;
    case '\r':
    case '\n':
      return WatchKey::attach;
    case 'a':
      return WatchKey::acknowledge;
    case 'x':
      return WatchKey::close;
    case 'y':
      return WatchKey::yes;
    case 'q':
    case '\x03':
      return WatchKey::quit;
    case '\x1a':
      return WatchKey::suspend;
    case '\x0c':
      return WatchKey::redraw;
    default:
      return WatchKey::other;
  }
}

constexpr auto sequences = std::to_array<std::pair<std::string_view, WatchKey>>({
    {"[A", WatchKey::up},
    {"OA", WatchKey::up},
    {"[B", WatchKey::down},
    {"OB", WatchKey::down},
    {"[5~", WatchKey::pageUp},
    {"[H", WatchKey::first},
    {"OH", WatchKey::first},
    {"[1~", WatchKey::first},
    {"[6~", WatchKey::pageDown},
    {"[F", WatchKey::last},
    {"OF", WatchKey::last},
    {"[4~", WatchKey::last},
});

// The sequence that follows an ESC: its introducer and all to its final byte.
std::string_view sequenceAt(std::string_view rest) {
  if (rest.empty() || (rest.front() != '[' && rest.front() != 'O')) return rest.substr(0, 1);
  std::size_t end = 1;
  while (end < rest.size() && (rest[end] < 0x40 || rest[end] > 0x7e)) ++end;
  return rest.substr(0, end + 1);
}

}  // namespace

std::vector<WatchKey> watchKeys(std::string_view bytes) {
  std::vector<WatchKey> keys;
  while (!bytes.empty()) {
    const char byte = bytes.front();
    bytes.remove_prefix(1);
    if (byte != '\x1b') {
      keys.push_back(plainKey(byte));
      continue;
    }
    const std::string_view sequence = sequenceAt(bytes);
    bytes.remove_prefix(sequence.size());
    keys.push_back(WatchKey::other);
    for (const auto& [known, key] : sequences) {
      if (sequence == known) keys.back() = key;
    }
  }
  return keys;
}

}  // namespace velotide::client
