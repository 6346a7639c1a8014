#pragma once

#include <string>

#include "base/time.h"
#include "bridge/native_messages.h"
#include "client/agent_context.h"

namespace velotide::client {

// Asks the service through its mailbox: a request file in, a response file out. `temporary` is a path on the
// mailbox's file system that nobody else uses, where the request is made before it appears whole. Throws
// Trouble, with ExitStatus::notRunning when there is no mailbox, and when no answer comes within `limit`.
RuntimeNativeResponse askMailbox(const AgentContext& context, RuntimeNativeRequest request,
                                 const std::string& temporary, Seconds limit);

}  // namespace velotide::client
