#pragma once

#include <array>

#include "base/failure.h"

namespace velotide {

// What the service's own operations throw; the raw words are the `error` texts of responses.
enum class RuntimeFailure {
  invalidRequest,
  invalidCapability,
  unavailable,
  generationChanged,
  controlChanged,
  controlOwned,
  resourceLimit,
  processLaunchFailed,
  writeFailed,
  resizeFailed,
  inputEchoChanged,
  inputForegroundChanged,
};

constexpr auto rawWords(RuntimeFailure) {
  return std::array{
      "invalid_request", "invalid_capability", "unavailable",        "generation_changed",
      "control_changed", "control_owned",      "resource_limit",     "process_launch_failed",
      "write_failed",    "resize_failed",      "input_echo_changed", "input_foreground_changed",
  };
}

inline void require(bool rule, RuntimeFailure otherwise) {
  if (!rule) throw Failure(otherwise);
}

}  // namespace velotide
