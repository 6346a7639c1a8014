#pragma once

#include <signal.h>

#include <utility>
#include <vector>

#include "base/file_descriptor.h"

namespace velotide::client {

// Turns signals into bytes that poll(2) sees, for as long as it lives; afterwards they do what they did
// before. One at a time in a process.
class SignalPipe {
 public:
  explicit SignalPipe(const std::vector<int>& signals);
  ~SignalPipe();
  SignalPipe(const SignalPipe&) = delete;
  SignalPipe& operator=(const SignalPipe&) = delete;

  int descriptor() const { return reading_.get(); }
  // The signals that came since the last call.
  std::vector<int> take();

 private:
  FileDescriptor reading_;
  FileDescriptor writing_;
  std::vector<std::pair<int, struct sigaction>> before_;
};

}  // namespace velotide::client
