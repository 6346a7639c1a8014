#pragma once

#include <functional>

#include "client/session_link.h"

namespace velotide::client {

enum class Followed { sessionEnded, enough, interrupted };

// Turns an open link until the session ends, the owner has enough, or a signal asks this process to stop.
Followed follow(SessionLink& link, const std::function<bool()>& hasEnough);

}  // namespace velotide::client
