#include "client/trouble.h"

#include <array>
#include <utility>

namespace velotide::client {

namespace {

constexpr auto sentences = std::to_array<std::pair<std::string_view, std::string_view>>({
    {"invalid_request",
     "The service does not take this request. Compare the versions that `velotide status` shows."},
    {"invalid_capability", "The service does not accept this key; it was restarted meanwhile. Try again."},
    {"unavailable", "The session has ended or is gone, or the service is stopping. See `velotide ls`."},
    {"generation_changed", "The session was restarted meanwhile. Try again."},
    {"control_changed", "Somebody else typed or took control at the same moment. Try again."},
    {"control_owned",
     "An agent holds control of the session. Wait until it is done; `velotide show` tells who."},
    {"resource_limit",
     "A limit of the service is reached. Close sessions that have ended: `velotide close --exited`."},
    {"process_launch_failed",
     "The program could not be started. Check that it can be executed and that the directory exists."},
    {"write_failed", "The session's terminal takes no input any more. See `velotide show`."},
    {"resize_failed", "The size was not accepted: 1 to 1000 columns and rows, of a running session."},
    {"future_cursor", "That position lies beyond the output. Leave --after out to read what is held."},
    {"response_too_large", "The answer exceeds what one response carries. Ask for one session at a time."},
    {"app_restarted",
     "The service was restarted since, and its events began anew. Leave --after out to read what is held."},
    {"cursor_expired",
     "Events behind that cursor are no longer held. Leave --after out to read those that are."},
    {"notFound", "That item is no longer active. `velotide attention` shows those that are."},
    {"staleVersion", "The item keeps changing. Look at it again: velotide attention"},
    {"invalidCapability", "The service does not take this program for the session's agent. Bind it again."},
    {"staleSequence", "Another report overtook this one. Let one program report for an agent."},
    {"invalidState",
     "These do not go together: a reason only when blocked, a result only when idle or exited, and names of "
     "1 to 128 letters, digits and -_:./"},
    {"runtime_error", "Something went wrong inside the service. See `velotide status`."},
    {"incompatible_protocol",
     "The service speaks another version of the protocol. Stop it with the client it came with, or install "
     "client and service of one version."},
});

}  // namespace

std::string explain(std::string_view word) {
  for (const auto& [known, sentence] : sentences) {
    if (known == word) return std::string(sentence);
  }
  return "The service answered \"" + std::string(word) + "\".";
}

}  // namespace velotide::client
