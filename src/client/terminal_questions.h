#pragma once

#include <string>
#include <string_view>

#include "client/sequence_scanner.h"
#include "client/session_input.h"

// The questions that programs ask their terminal within their output, and the answers that the terminal sends
// as if they were typed.
namespace velotide::client {

// What kind of input a whole sequence from a terminal is. Keys that look like a short answer count as typed.
SessionInput::Kind kindOfSequence(std::string_view sequence);

// Takes out of a session's past output what only had a meaning when it was written: questions (the terminal
// would answer into a program that no longer asks), bells, and writes to the clipboard.
class PastOutput {
 public:
  // What of `output` is to be shown.
  std::string filter(std::string_view output);
  // The beginning of a sequence that `filter` held back, once what follows is no longer the past.
  std::string rest() { return scanner_.takeHeld(); }

 private:
  void filterText(std::string_view text, std::string& shown);

  SequenceScanner scanner_;
  // What is let through is shown; it is not over yet, or has ended just now.
  bool isInLong_ = false;
};

}  // namespace velotide::client
