#include "commands/reminder_policy.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "base/utf8.h"

namespace velotide {

bool TerminalReminderPolicy::isValid() const {
  const auto isLength = [](Seconds length) { return std::isfinite(length) && length >= 0; };
  return isLength(longCommandSeconds) && isLength(failureMinimumSeconds);
}

bool TerminalReminderPolicy::allowsBell(const std::optional<TerminalAgentSnapshot>& agent,
                                        bool hasSemanticItem) const {
  if (!bells || hasSemanticItem) return false;
  if (!agent || agent->source != TerminalAgentSource::integration) return true;
  return agent->activity == TerminalAgentActivity::unknown ||
         agent->activity == TerminalAgentActivity::exited;
}

bool TerminalReminderPolicy::allowsCommand(TerminalCommandLifecycleState state, Seconds duration,
                                           bool isLowInformation, bool hasErrorSignal) const {
  switch (state) {
    case TerminalCommandLifecycleState::failed:
      return commandFailures && !isLowInformation && (duration >= failureMinimumSeconds || hasErrorSignal);
    case TerminalCommandLifecycleState::succeeded:
      return longCommandCompletion && duration >= longCommandSeconds;
    case TerminalCommandLifecycleState::running:
    case TerminalCommandLifecycleState::interrupted:
    case TerminalCommandLifecycleState::superseded:
    case TerminalCommandLifecycleState::completedUnknownStatus:
      return false;
  }
  return false;
}

namespace {

std::string_view lastPathComponent(std::string_view path) {
  const std::size_t end = path.find_last_not_of('/');
  if (end == path.npos) return path.substr(0, 1);
  path = path.substr(0, end + 1);
  return path.substr(path.rfind('/') + 1);
}

}  // namespace

bool TerminalReminderPolicy::isLowInformationCommand(std::string_view text) {
  static constexpr std::array<std::string_view, 17> names{
      "alias",   "bg",   "cd",   "clear", "dirs", "disown", "export",  "false", "fg",
      "history", "jobs", "popd", "pushd", "pwd",  "true",   "unalias", "unset"};
  const std::string_view first = takeWord(text);
  if (first.empty()) return true;
  std::string_view word = first;
  while (word == "builtin" || word == "command") word = takeWord(text);
  const std::string_view name = lastPathComponent(word.empty() ? first : word);
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace velotide
