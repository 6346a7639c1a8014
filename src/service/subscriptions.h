#pragma once

#include "protocol/runtime_response.h"
#include "service/runtime_client.h"
#include "service/service_state.h"

namespace velotide {

// Streams of output and state to clients that asked for them.

// The subscription that a successful answer to `request` begins.
OutputSubscription subscriptionFrom(const TerminalRuntimeRequest& request,
                                    const TerminalRuntimeResponse& response, Uptime now);

// Queues a push on the client if its session has something new for it, or the heartbeat is due. Ends the
// subscription when the session is gone; disconnects the client when its cursor is no longer one of the
// session's.
void publishSubscription(RuntimeClient& client, const RuntimeServiceState& state, Uptime now);

}  // namespace velotide
