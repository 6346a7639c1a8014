#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "base/time.h"

// Every number that is part of the protocol's contract. Clients compile against the same values.
namespace velotide::TerminalRuntimeLimits {

inline constexpr int protocolVersion = 3;

inline constexpr int defaultColumns = 80;
inline constexpr int defaultRows = 24;

inline constexpr std::string_view restartExitedFeature = "restart_exited_v1";
inline constexpr std::string_view agentToolsFeature = "agent_tools_v1";
inline constexpr std::string_view eventWaitFeature = "event_wait_v1";
inline constexpr std::string_view commandLifecycleFeature = "command_lifecycle_v1";
inline constexpr std::string_view terminalAttentionFeature = "terminal_attention_v1";

// In the order in which they are advertised.
inline constexpr std::array features = {restartExitedFeature, agentToolsFeature, eventWaitFeature,
                                        commandLifecycleFeature, terminalAttentionFeature};

// Unconsumed bytes that a client's receive buffer may hold; also queued plus new input of one session.
inline constexpr std::size_t maximumFrameBytes = 131072;
// Encoded response without its line feed; also the capacity of a session's journal.
inline constexpr std::size_t maximumResponseBytes = 1048576;
// Terminal output of one response or push; also the data of one input request.
inline constexpr std::size_t maximumOutputBytes = 65536;
// Sessions plus retired children that have not been reaped.
inline constexpr std::size_t maximumSessions = 64;
inline constexpr std::size_t maximumClients = 32;
// Encoded, unsent bytes of one client.
inline constexpr std::size_t maximumClientQueueBytes = 2097152;

inline constexpr Seconds requestDeadline = 5;
inline constexpr Seconds leaseSeconds = 120;
inline constexpr Seconds subscriptionHeartbeat = 15;
inline constexpr Seconds subscriptionWriteDeadline = 30;
// For consumers; the service does not read it.
inline constexpr Seconds defaultConsumerAcknowledgementDeadline = 30;

}  // namespace velotide::TerminalRuntimeLimits
