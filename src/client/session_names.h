#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/service.h"

namespace velotide::client {

// How people name sessions: by ID or by any beginning of one that fits no other, in either case.

// What tables and messages show of an ID, long enough to be told apart as a rule.
std::string shortName(const Uuid& id);

// The session that `name` means among `sessions`. Throws Trouble when none or several fit.
const TerminalRuntimeSessionInfo& resolveName(std::string_view name,
                                              const std::vector<TerminalRuntimeSessionInfo>& sessions);

// The same among the sessions of `service`. An empty name means the only running one.
TerminalRuntimeSessionInfo findSession(Service& service, std::string_view name);

}  // namespace velotide::client
