#include "client/notices.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace velotide::client {

namespace {

void say(std::string_view text) {
  const std::string line = "velotide: " + std::string(text) + "\n";
  // Nobody is left to tell when this fails.
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace

void Notices::note(std::string_view text) const {
  if (!quiet_) say(text);
}

void Notices::error(std::string_view text) const { say(text); }

Uptime now() { return SystemClock().uptime(); }

bool waitFor(int descriptor, short events, Seconds limit) {
  const Uptime deadline = now() + limit;
  for (;;) {
    const Seconds left = std::max(deadline - now(), 0.0);
    pollfd entry{descriptor, events, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(std::ceil(left * 1000)));
    if (ready > 0) return true;
    if (left == 0) return false;
  }
}

Patience::Patience(const Notices& notices, std::string what, Seconds limit)
    : notices_(notices), what_(std::move(what)), begin_(now()), limit_(limit) {}

bool Patience::isSpent() {
  const Seconds passed = now() - begin_;
  if (passed >= silence && !hasSpoken_) {
    hasSpoken_ = true;
    notices_.note("waiting for " + what_ + " …");
  }
  return passed >= limit_;
}

Seconds Patience::left() const { return std::max(limit_ - (now() - begin_), 0.0); }

void Patience::pause() {
  const Seconds length = std::min(step_, left());
  ::poll(nullptr, 0, static_cast<int>(std::ceil(length * 1000)));
  step_ = std::min(step_ * 2, 0.05);
}

}  // namespace velotide::client
