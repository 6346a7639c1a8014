#pragma once

#include <chrono>

namespace velotide::bench {

// How long anything may take that the service must do, in attended time. Generous, because on a busy machine
// the service may wait for its turn when this process does not.
constexpr std::chrono::seconds soakPatience{60};

}  // namespace velotide::bench
