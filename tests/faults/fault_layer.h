#pragma once

#include <sys/types.h>

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

// Stands between the service and the system in the executable that it is linked into: the linker sends every
// call listed here through the layer (see CMakeLists.txt), which carries it out, shortens it or fails it as
// the schedule says. Only calls made while the service is being served are counted or touched: neither the
// test's own nor those of a forked child.
namespace velotide::faults {

#define VELOTIDE_FAULT_CALLS(each)                                                                           \
  each(accept) each(bind) each(chmod) each(close) each(fcntl) each(fdopendir) each(flock) each(forkpty)      \
      each(fstat) each(fstatat) each(getsockopt) each(ioctl) each(kill) each(listen) each(lstat) each(mkdir) \
          each(mmap) each(open) each(openat) each(pipe) each(poll) each(read) each(readdir) each(rename)     \
              each(send) each(socket) each(stat) each(tcgetattr) each(tcgetpgrp) each(unlink) each(unlinkat) \
                  each(waitpid) each(write)

enum class Call {
#define VELOTIDE_FAULT_CASE(name) name,
  VELOTIDE_FAULT_CALLS(VELOTIDE_FAULT_CASE)
#undef VELOTIDE_FAULT_CASE
};

inline constexpr std::size_t always = std::numeric_limits<std::size_t>::max();

// What befalls the calls number `first` to `last` of their kind, counted from 1 when the schedule is set.
struct Fault {
  Call call;
  // The errno; 0 lets the call succeed with the result below, or be carried out shortened.
  int error = 0;
  std::size_t first = 1;
  std::size_t last = always;
  // Of those calls, each so manyth.
  std::size_t every = 1;
  // Most bytes that a read, write or send moves; 0 is no limit.
  std::size_t atMost = 0;
  ssize_t result = -1;
};

// Moves a byte at most, or does nothing at all.
constexpr Fault cut(Call call) { return {.call = call, .atMost = 1}; }
constexpr Fault nothing(Call call) { return {.call = call, .result = 0}; }

// The call and how it fails, as a word.
std::string nameOf(const Fault& fault);
// Replaces the schedule and counts from 0.
void schedule(std::vector<Fault> faults);
// Calls of the kind so far, and how many calls of any kind were touched.
std::size_t count(Call call);
std::size_t touched();
// Polls that found something at once: a loop that spins has nothing but these.
std::size_t busyPolls();

// While one is alive, calls are the service's.
inline bool serving = false;
struct Serving {
  Serving() { serving = true; }
  ~Serving() { serving = false; }
};

}  // namespace velotide::faults
