#pragma once

#include <optional>

#include "base/bytes.h"
#include "client/past_output.h"
#include "client/signal_pipe.h"
#include "client/terminal_modes.h"

namespace velotide::client {

// A session's output on standard output: every byte as it is, but for a terminal without what would make it
// answer, since no program waits for that and it would be taken for typing here. In the end the terminal's
// modes are switched back.
class ShownOutput {
 public:
  // Whose business signals are that end or stop this process: `own`, they are obeyed between two pieces, the
  // terminal being given back first.
  enum class Signals { own, owners };

  explicit ShownOutput(Signals signals);
  ~ShownOutput();
  ShownOutput(const ShownOutput&) = delete;
  ShownOutput& operator=(const ShownOutput&) = delete;

  // Throws Trouble when standard output takes no more.
  void print(ByteView output);
  // Ends what the terminal may still take for an unfinished sequence, and switches its modes back. More may
  // be printed afterwards.
  void giveBack();

 private:
  void obeySignals();

  const bool isTerminal_;
  const bool ownsSignals_;
  // From the first piece on: until then nothing has to be given back.
  std::optional<SignalPipe> signals_;
  PastOutput past_;
  TerminalModes modes_;
};

}  // namespace velotide::client
