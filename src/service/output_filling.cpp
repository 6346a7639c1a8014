#include "service/output_filling.h"

#include "protocol/limits.h"

namespace velotide {

void fillOutput(TerminalRuntimeResponse& response, const RuntimeServiceState& state,
                const RuntimeSession& session, const std::optional<TerminalRuntimeOutputCursor>& after) {
  TerminalRuntimeOutputBatch batch = session.journal().read(after, TerminalRuntimeLimits::maximumOutputBytes);
  response.data = batch.data;
  response.cursor = batch.cursor;
  response.latestOffset = batch.latestOffset;
  response.hasGap = batch.hasGap;
  response.attention = state.attention.activeItems(session.id());
  response.eventHead = state.events.cursor();
  response.foregroundPID = session.foregroundProcessGroup();
}

}  // namespace velotide
