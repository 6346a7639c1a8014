#include "agents/agent_snapshot.h"

#include <unicode/uchar.h>

#include <string_view>

#include "base/utf8.h"

namespace velotide {

namespace {

constexpr std::size_t maximumIdentifierBytes = 128;
constexpr std::string_view identifierPunctuation = "-_:./";

bool isIdentifierScalar(char32_t scalar) {
  if (scalar < 0x80 && identifierPunctuation.find(static_cast<char>(scalar)) != std::string_view::npos)
    return true;
  return u_isalnum(static_cast<UChar32>(scalar));
}

bool isIdentifier(std::string_view text) {
  if (text.empty() || text.size() > maximumIdentifierBytes) return false;
  while (!text.empty()) {
    if (!isIdentifierScalar(takeFirstScalar(text))) return false;
  }
  return true;
}

}  // namespace

bool TerminalAgentReportedContext::isValid() const {
  return (!taskID || isIdentifier(*taskID)) && (!gateID || isIdentifier(*gateID));
}

bool TerminalAgentSnapshot::sameEvidence(const std::optional<TerminalAgentSnapshot>& one,
                                         const std::optional<TerminalAgentSnapshot>& other) {
  if (!one || !other) return one.has_value() == other.has_value();
  if (*one == *other) return true;
  TerminalAgentSnapshot aligned = *one;
  aligned.updatedAt = other->updatedAt;
  aligned.expiresAt = other->expiresAt;
  aligned.reportSequence = other->reportSequence;
  return aligned == *other;
}

}  // namespace velotide
