#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "protocol/session_records.h"

namespace velotide {

// Throws invalidRequest when a launch description breaks a rule.
void validateLaunch(const TerminalRuntimeLaunch& launch);

// A child on its terminal.
struct LaunchedChild {
  std::int32_t pid = 0;
  int master = -1;
};

// Starts the child of a valid description with `environment` in place of the description's own.
// Throws processLaunchFailed, or resourceLimit when there is no memory for the vectors.
LaunchedChild launchChild(const TerminalRuntimeLaunch& launch,
                          const std::map<std::string, std::string>& environment);

}  // namespace velotide
