#pragma once

#include <optional>
#include <string_view>

#include "agents/agent_snapshot.h"
#include "base/time.h"
#include "commands/command_info.h"

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

  // `hasSemanticItem`: an attention item that the agent's integration raised already speaks for this moment.
  bool allowsBell(const std::optional<TerminalAgentSnapshot>& agent, bool hasSemanticItem) const;
  // `duration` is never negative.
  bool allowsCommand(TerminalCommandLifecycleState state, Seconds duration, bool isLowInformation,
                     bool hasErrorSignal) const;
  // Whether nobody waits for the outcome of this command text: blank, or a shell built-in such as cd.
  static bool isLowInformationCommand(std::string_view text);

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
