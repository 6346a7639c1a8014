#include "client/shown_output.h"

#include <unistd.h>

#include "client/printing.h"

namespace velotide::client {

ShownOutput::ShownOutput() : isTerminal_(::isatty(STDOUT_FILENO) == 1) {}

ShownOutput::~ShownOutput() {
  const std::string off = modes_.switchOff();
  [[maybe_unused]] const ssize_t written = ::write(STDOUT_FILENO, off.data(), off.size());
}

void ShownOutput::print(ByteView output) {
  if (!isTerminal_) return client::print(output);
  const std::string shown = past_.filter(textOf(output));
  modes_.observe(shown);
  client::print(shown);
}

}  // namespace velotide::client
