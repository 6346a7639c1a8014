#include "commands/reminder_policy.h"

#include <cmath>

namespace velotide {

bool TerminalReminderPolicy::isValid() const {
  const auto isLength = [](Seconds length) { return std::isfinite(length) && length >= 0; };
  return isLength(longCommandSeconds) && isLength(failureMinimumSeconds);
}

}  // namespace velotide
