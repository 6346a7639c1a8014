#pragma once

#include <functional>

#include "client/session_link.h"

namespace velotide::client {

// Opens the link and turns it until the session ends, the owner has enough (asked once more at the end), or a
// signal asks this process to end. One that suspends it does so after `beforeStop`. Throws Trouble when the
// service is gone.
void follow(SessionLink& link, const std::function<bool()>& hasEnough,
            const std::function<void()>& beforeStop);

}  // namespace velotide::client
