#include "agents/agent_snapshot.h"

namespace velotide {

bool TerminalAgentSnapshot::sameEvidence(const std::optional<TerminalAgentSnapshot>& one,
                                         const std::optional<TerminalAgentSnapshot>& other) {
  if (!one || !other) return one.has_value() == other.has_value();
  TerminalAgentSnapshot aligned = *one;
  aligned.updatedAt = other->updatedAt;
  aligned.expiresAt = other->expiresAt;
  aligned.reportSequence = other->reportSequence;
  return aligned == *other;
}

}  // namespace velotide
