#pragma once

#include "base/bytes.h"
#include "client/past_output.h"
#include "client/terminal_modes.h"

namespace velotide::client {

// A session's output on standard output: every byte as it is, but for a terminal without what would make it
// answer, since no program waits for that and it would be taken for typing here. In the end the terminal's
// modes are switched back.
class ShownOutput {
 public:
  ShownOutput();
  ~ShownOutput();
  ShownOutput(const ShownOutput&) = delete;
  ShownOutput& operator=(const ShownOutput&) = delete;

  // Throws Trouble when standard output takes no more.
  void print(ByteView output);

 private:
  const bool isTerminal_;
  PastOutput past_;
  TerminalModes modes_;
};

}  // namespace velotide::client
