#include "end_to_end/waiting.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>

namespace velotide::bench {
namespace {

constexpr std::array endingSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr std::chrono::milliseconds longestNap{200};
constexpr std::chrono::milliseconds longestAttended{500};

// Of any thread, and of the handler.
std::atomic<int> signalReceived = 0;
static_assert(std::atomic<int>::is_always_lock_free);
Clock::time_point lastMoment = Clock::time_point::max();

void rememberSignal(int signal) { signalReceived = signal; }

void requirePermissionToGoOn() {
  if (signalReceived != 0) throw Interrupted("ended by signal " + std::to_string(signalReceived));
  if (attendedNow() > lastMoment) throw Interrupted("the whole run took longer than its --timeout");
}

// Naps are short because a signal that arrives just before poll() must not wait for the descriptors.
bool pollUntil(std::span<pollfd> descriptors, Clock::time_point deadline) {
  while (true) {
    requirePermissionToGoOn();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - attendedNow());
    const auto nap = std::clamp(left, std::chrono::milliseconds::zero(), longestNap);
    const int ready =
        ::poll(descriptors.data(), static_cast<nfds_t>(descriptors.size()), static_cast<int>(nap.count()));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) failWithErrno("poll");
    if (attendedNow() >= deadline) return false;
  }
}

}  // namespace

Clock::time_point attendedNow() {
  static std::mutex mutex;
  static Clock::time_point asked = Clock::now();
  static Clock::duration lost{};
  const std::lock_guard lock(mutex);
  const auto now = Clock::now();
  if (now - asked > longestAttended) lost += now - asked - longestAttended;
  asked = now;
  return now - lost;
}

double secondsBetween(Clock::time_point begin, Clock::time_point end) {
  return std::chrono::duration<double>(end - begin).count();
}

void failWithErrno(const std::string& what) { throw std::runtime_error(what + ": " + std::strerror(errno)); }

void endOnSignalsOrAfter(std::chrono::seconds limit) {
  lastMoment = attendedNow() + limit;
  struct sigaction action {};
  action.sa_handler = rememberSignal;
  for (const int signal : endingSignals) ::sigaction(signal, &action, nullptr);
  ::signal(SIGPIPE, SIG_IGN);
}

void restoreSignals() {
  for (const int signal : endingSignals) ::signal(signal, SIG_DFL);
  ::signal(SIGPIPE, SIG_DFL);
}

void awaitReady(std::span<pollfd> descriptors, std::chrono::milliseconds patience) {
  if (!pollUntil(descriptors, attendedNow() + patience)) {
    throw std::runtime_error("nothing arrived within " + std::to_string(patience.count()) + " ms");
  }
}

void awaitReadable(int descriptor) {
  pollfd entry{descriptor, POLLIN, 0};
  awaitReady({&entry, 1});
}

void pause(std::chrono::milliseconds duration) { pollUntil({}, attendedNow() + duration); }

std::size_t readSome(int descriptor, std::span<char> buffer) {
  while (true) {
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count >= 0) return static_cast<std::size_t>(count);
    if (errno == EIO || errno == ECONNRESET) return 0;
    if (errno != EINTR) failWithErrno("read");
  }
}

void writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && (errno == EPIPE || errno == ECONNRESET)) throw ConnectionEnded("nobody reads any more");
    if (count < 0) failWithErrno("write");
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace velotide::bench
