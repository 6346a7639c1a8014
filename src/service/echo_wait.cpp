#include "service/echo_wait.h"

#include <algorithm>
#include <utility>

namespace velotide {

namespace {

constexpr int echoMilliseconds = 1;
// After an echo that did not come.
constexpr Seconds missedEchoPause = 0.1;
// Whoever types without a pause must not keep the others from being read.
constexpr Seconds longestHold = 0.0005;

}  // namespace

int EchoWait::patience(int milliseconds) const {
  return sessions_.empty() ? milliseconds : std::min(milliseconds, echoMilliseconds);
}

bool EchoWait::holdsBack(const Uuid& session, Uptime now) {
  if (sessions_.empty() || std::ranges::find(sessions_, session) != sessions_.end()) return false;
  if (now < resumesAt_ || now - heldNoneAt_ > longestHold) return false;
  heldInThisTurn_ = true;
  return true;
}

void EchoWait::foundNothing(Uptime now) {
  if (!sessions_.empty()) resumesAt_ = now + missedEchoPause;
}

void EchoWait::endTurn(Uptime now) {
  if (!std::exchange(heldInThisTurn_, false)) heldNoneAt_ = now;
}

}  // namespace velotide
