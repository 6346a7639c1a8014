#pragma once

#include <chrono>

namespace velotide::bench {

// How long anything may take that the service must do. Generous, because a busy machine may let every process
// stand still for many seconds.
constexpr std::chrono::seconds soakPatience{60};

}  // namespace velotide::bench
