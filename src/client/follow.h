#pragma once

#include <functional>

#include "client/session_link.h"

namespace velotide::client {

enum class Followed { sessionEnded, enough, interrupted };

// Opens the link and turns it until the session ends, the owner has enough, or a signal asks this process to
// end. One that suspends it does so after `beforeStop`.
Followed follow(SessionLink& link, const std::function<bool()>& hasEnough,
                const std::function<void()>& beforeStop);

}  // namespace velotide::client
