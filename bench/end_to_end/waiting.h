#pragma once

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace velotide::bench {

using Clock = std::chrono::steady_clock;

// The clock less the time in which this whole process stood still, as all do now and then on a machine that
// is shared or suspended: what waits by it does not blame the other side for that. Any thread may ask;
// somebody has to, every half second.
Clock::time_point attendedNow();

double secondsBetween(Clock::time_point begin, Clock::time_point end);

// Thrown when a signal asked the program to end or its own time is up.
struct Interrupted : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Thrown when the other side closed a connection.
struct ConnectionEnded : std::runtime_error {
  using std::runtime_error::runtime_error;
};

[[noreturn]] void failWithErrno(const std::string& what);

// From here on a terminating signal, or the passing of `limit`, makes the next wait throw Interrupted, so
// that every owner on the stack cleans up on the way out.
void endOnSignalsOrAfter(std::chrono::seconds limit);

// Back to the system's signal handling, for forked children.
void restoreSignals();

// The one place where the program blocks. Waits until one of the descriptors is ready; throws Interrupted, or
// std::runtime_error when `patience` has passed first.
void awaitReady(std::span<pollfd> descriptors, std::chrono::milliseconds patience = std::chrono::seconds(30));
void awaitReadable(int descriptor);

// Sleeps, and still notices a request to end.
void pause(std::chrono::milliseconds duration);

// Reads once from a ready descriptor. The end of a stream, and of a terminal whose child has gone, is 0.
std::size_t readSome(int descriptor, std::span<char> buffer);
// Throws ConnectionEnded when nobody reads any more.
void writeAll(int descriptor, std::string_view bytes);

}  // namespace velotide::bench
