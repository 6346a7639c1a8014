#include "client/shown_output.h"

#include <unistd.h>

#include "client/printing.h"

namespace velotide::client {

ShownOutput::ShownOutput(Signals signals)
    : isTerminal_(::isatty(STDOUT_FILENO) == 1), ownsSignals_(signals == Signals::own) {}

ShownOutput::~ShownOutput() {
  giveBack();
  obeySignals();
}

void ShownOutput::print(ByteView output) {
  if (!isTerminal_) return client::print(output);
  if (ownsSignals_ && !signals_) signals_.emplace(std::vector{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP});
  const std::string shown = past_.filter(textOf(output));
  modes_.observe(shown);
  client::print(shown);
  obeySignals();
}

void ShownOutput::giveBack() {
  const std::string cancel = modes_.isBetweenSequences() ? "" : "\x18";
  const std::string off = cancel + modes_.switchOff();
  modes_ = {};
  [[maybe_unused]] const ssize_t written = ::write(STDOUT_FILENO, off.data(), off.size());
}

void ShownOutput::obeySignals() {
  if (!signals_) return;
  for (const int signal : signals_->take()) {
    giveBack();
    // To do what it does by itself. A stopped process goes on here.
    signals_.reset();
    ::raise(signal);
  }
}

}  // namespace velotide::client
