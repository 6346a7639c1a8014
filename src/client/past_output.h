#pragma once

#include <string>
#include <string_view>

#include "client/sequence_scanner.h"

namespace velotide::client {

// A session's output for a terminal that the program did not write it to: text, and those escape sequences
// that draw or set a mode. All else is left out. A question would be answered into a program that never
// asked, as if the answer were typed; other sequences ring, write the clipboard or reach beyond the screen.
// Sequences that terminals read in different ways (unfinished, with control characters inside) are left out
// too, and "?" spoils the 8-bit control characters.
class PastOutput {
 public:
  // What of `output` is to be shown; in any chunks.
  std::string filter(std::string_view output);
  // The beginning of a sequence that `filter` held back, once what follows is no longer the past.
  std::string rest() { return scanner_.takeHeld(); }

 private:
  void keepText(std::string_view text);
  void closeLongSequence();
  void show(std::string_view bytes);

  SequenceScanner scanner_;
  std::string shown_;
  // The last byte shown may begin a control character of two bytes.
  bool isLeadShown_ = false;
  // Whether the sequence that is too long to hold is shown, and whether a terminal still waits for its end.
  bool isLongShown_ = false;
  bool isLongOpen_ = false;
};

}  // namespace velotide::client
