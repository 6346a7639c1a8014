#pragma once

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>
#include <vector>

#include "client/service.h"

namespace velotide::client {

// How people name sessions: by ID or by any beginning of one that fits no other, in either case.

// What tables and messages show of an ID, long enough to be told apart as a rule.
std::string shortName(const Uuid& id);

// Those of `all` whose ID begins like `name`, in either case. Nothing begins like an empty name: it stands
// for a variable that was not set, not for a choice.
template <typename Item>
std::vector<const Item*> namedBy(std::string_view name, const std::vector<Item>& all) {
  const auto isSame = [](unsigned char letter, char upper) { return std::toupper(letter) == upper; };
  std::vector<const Item*> found;
  for (const Item& item : all) {
    const std::string text = item.id.text();
    if (!name.empty() && name.size() <= text.size() &&
        std::equal(name.begin(), name.end(), text.begin(), isSame))
      found.push_back(&item);
  }
  return found;
}

// The session that `name` means among `sessions`. Throws Trouble when none or several fit.
const TerminalRuntimeSessionInfo& resolveName(std::string_view name,
                                              const std::vector<TerminalRuntimeSessionInfo>& sessions);

// The same among the sessions of `service`.
TerminalRuntimeSessionInfo findSession(Service& service, std::string_view name);

// The only session of `service` that is running. Throws Trouble when none or several are.
TerminalRuntimeSessionInfo findRunningSession(Service& service);

}  // namespace velotide::client
