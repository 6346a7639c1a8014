#pragma once

#include "base/time.h"

namespace velotide {

// Which happenings of a session deserve a notice to the person, and from which length on.
struct TerminalReminderPolicy {
  bool bells = true;
  bool commandFailures = true;
  bool longCommandCompletion = true;
  bool processExits = false;
  Seconds longCommandSeconds = 30;
  Seconds failureMinimumSeconds = 5;

  // Both lengths are finite and not negative.
  bool isValid() const;

  bool operator==(const TerminalReminderPolicy&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("bells", self.bells);
    visit("commandFailures", self.commandFailures);
    visit("longCommandCompletion", self.longCommandCompletion);
    visit("processExits", self.processExits);
    visit("longCommandSeconds", self.longCommandSeconds);
    visit("failureMinimumSeconds", self.failureMinimumSeconds);
  }
};

}  // namespace velotide
