#pragma once

#include <optional>

#include "protocol/runtime_response.h"
#include "service/service_state.h"

namespace velotide {

// Puts a session's output behind `after`, and what belongs beside it, into a response. The output is borrowed
// from the session's journal until its next append. Throws Failure<TerminalRuntimeOutputError>.
void fillOutput(TerminalRuntimeResponse& response, const RuntimeServiceState& state,
                const RuntimeSession& session, const std::optional<TerminalRuntimeOutputCursor>& after);

}  // namespace velotide
