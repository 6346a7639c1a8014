#include "client/signal_pipe.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>

#include "client/trouble.h"

namespace velotide::client {

namespace {

std::atomic<int> target = -1;

extern "C" void noteSignal(int signal) {
  const int error = errno;
  const auto byte = static_cast<unsigned char>(signal);
  // A full pipe says already that signals are waiting.
  [[maybe_unused]] const ssize_t written = ::write(target.load(), &byte, 1);
  errno = error;
}

}  // namespace

SignalPipe::SignalPipe(const std::vector<int>& signals) {
  int ends[2];
  if (::pipe(ends) != 0) throw Trouble("No descriptor is left. Close some programs.");
  reading_ = FileDescriptor(ends[0]);
  writing_ = FileDescriptor(ends[1]);
  for (const int end : ends) {
    ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(end, F_SETFL, O_NONBLOCK);
  }
  target = writing_.get();
  struct sigaction action {};
  action.sa_handler = noteSignal;
  action.sa_flags = SA_RESTART;
  for (const int signal : signals) {
    struct sigaction before {};
    ::sigaction(signal, &action, &before);
    before_.emplace_back(signal, before);
  }
}

SignalPipe::~SignalPipe() {
  for (const auto& [signal, before] : before_) ::sigaction(signal, &before, nullptr);
  target = -1;
}

std::vector<int> SignalPipe::take() {
  unsigned char bytes[64];
  const ssize_t count = ::read(reading_.get(), bytes, sizeof bytes);
  return {bytes, bytes + (count > 0 ? count : 0)};
}

}  // namespace velotide::client
