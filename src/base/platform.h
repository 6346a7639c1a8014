#pragma once

#include <sys/types.h>
#include <sys/un.h>
#include <termios.h>
#include <time.h>

#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "base/bytes.h"

struct winsize;

// Everything in which the operating systems differ. One source per platform implements it; no other file asks
// on which platform it is compiled.
namespace velotide::platform {

// The clock that never jumps: seconds since boot.
extern const clockid_t uptimeClock;

// Random bytes from the kernel; false when it has none.
bool fillRandom(std::span<std::uint8_t> bytes);

// Effective user at the other end of a local stream socket.
std::optional<uid_t> peerUser(int socket);

// Makes writes to a closed peer fail with EPIPE instead of raising a signal: once per socket here where the
// system can, per call in `sendQuietly` where it cannot. Both are always used together. `sendQuietly` returns
// what send(2) returns.
bool suppressBrokenPipeSignal(int socket);
ssize_t sendQuietly(int socket, ByteView bytes);

// The address of a socket in the file system; the path must be shorter than 104 bytes.
sockaddr_un localAddress(const std::string& path);

// bind(2) and connect(2) on such an address. -1 with errno.
int bindLocal(int socket, const std::string& path);
int connectLocal(int socket, const std::string& path);

// forkpty(3) with no name and the system's terminal defaults.
pid_t forkTerminal(int* master, const winsize& size);

// Closes every descriptor from `first` on, except `kept`, at a cost that does not grow with the descriptor
// limit. Safe between fork and exec.
void closeDescriptorsFrom(int first, int kept);

// Keeps a page-aligned region out of forked children's memory and out of huge pages. Best effort.
void keepFromChildren(void* region, std::size_t size);

// From here on large allocations go back to the system when they are freed. Without this some allocators keep
// what a burst once needed for as long as the process lives. Best effort; before the first allocations.
void keepLargeAllocationsApart();

// Gives back what was freed between small allocations that live on. Takes tenths of a
// millisecond when there is a MiB of it.
void giveBackFreedMemory();

// Path of the running executable; empty when the system does not tell.
std::string executablePath();

// Whether /bin/bash is the version 3.2 that a system kept.
extern const bool hasOldBash;

}  // namespace velotide::platform
