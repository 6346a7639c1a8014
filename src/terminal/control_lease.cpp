#include "terminal/control_lease.h"

#include <algorithm>

#include "base/fatal.h"
#include "protocol/limits.h"

namespace velotide {

bool ControlLease::isOwnerName(std::string_view name) {
  return !name.empty() && name.size() <= 128 &&
         std::ranges::all_of(name, [](char character) { return character >= 0x20 && character <= 0x7E; });
}

void ControlLease::take(const std::string& owner, Uptime uptime, Date now) {
  owner_ = owner;
  renew(uptime, now);
}

void ControlLease::renew(Uptime uptime, Date now) {
  deadline_ = uptime + TerminalRuntimeLimits::leaseSeconds;
  expiresAt_ = now + TerminalRuntimeLimits::leaseSeconds;
}

void ControlLease::release() { *this = ControlLease(); }

void ControlLease::consumeInputSequence() { increment(nextInputSequence_); }

}  // namespace velotide
