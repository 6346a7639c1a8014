#include "service/error_word.h"

#include "agents/agent_report.h"
#include "base/fatal.h"
#include "base/record.h"
#include "events/attention_item.h"
#include "events/session_event.h"
#include "protocol/runtime_failure.h"
#include "terminal/output_journal.h"

namespace velotide {

namespace {

std::string word(TerminalRuntimeOutputError error) {
  switch (error) {
    case TerminalRuntimeOutputError::generationChanged:
      return "generation_changed";
    case TerminalRuntimeOutputError::futureCursor:
      return "future_cursor";
    case TerminalRuntimeOutputError::invalidCapacity:
    case TerminalRuntimeOutputError::invalidLimit:
    case TerminalRuntimeOutputError::offsetOverflow:
      return "invalid_request";
  }
  fatal("an output error of no kind");
}

}  // namespace

std::string errorWordOfCurrentFailure() {
  try {
    throw;
  } catch (const Failure<RuntimeFailure>& failure) {
    return std::string(rawWord(failure.word));
  } catch (const Failure<TerminalRuntimeOutputError>& failure) {
    return word(failure.word);
  } catch (const Failure<TerminalEventReadError>& failure) {
    return std::string(rawWord(failure.word));
  } catch (const Failure<TerminalAttentionMutationError>& failure) {
    return std::string(rawWord(failure.word));
  } catch (const Failure<TerminalAgentReportError>& failure) {
    return std::string(rawWord(failure.word));
  } catch (...) {
    return "runtime_error";
  }
}

}  // namespace velotide
