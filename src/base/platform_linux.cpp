#include <errno.h>
#include <malloc.h>
#include <pty.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <climits>
#include <cstring>

#include "base/platform.h"

namespace velotide::platform {

// CLOCK_MONOTONIC stands still while the machine sleeps, as leases should.
const clockid_t uptimeClock = CLOCK_MONOTONIC;

bool fillRandom(std::span<std::uint8_t> bytes) { return getentropy(bytes.data(), bytes.size()) == 0; }

std::optional<uid_t> peerUser(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
  return peer.uid;
}

bool suppressBrokenPipeSignal(int) { return true; }

ssize_t sendQuietly(int socket, ByteView bytes) {
  return ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

sockaddr_un localAddress(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path - 1));
  return address;
}

pid_t forkTerminal(int* master, const winsize& size) { return forkpty(master, nullptr, nullptr, &size); }

namespace {

void closeRange(unsigned first, unsigned last) {
  if (first > last) return;
  if (syscall(SYS_close_range, first, last, 0U) == 0) return;
  // Kernels before 5.9 know no ranges.
  const long limit = sysconf(_SC_OPEN_MAX);
  const unsigned end = limit < 0 ? 10240U : static_cast<unsigned>(limit);
  for (unsigned descriptor = first; descriptor <= last && descriptor < end; ++descriptor) {
    close(static_cast<int>(descriptor));
  }
}

}  // namespace

void closeDescriptorsFrom(int first, int kept) {
  if (kept < first) return closeRange(static_cast<unsigned>(first), UINT_MAX);
  closeRange(static_cast<unsigned>(first), static_cast<unsigned>(kept) - 1);
  closeRange(static_cast<unsigned>(kept) + 1, UINT_MAX);
}

void keepFromChildren(void* region, std::size_t size) {
  madvise(region, size, MADV_DONTFORK);
  // Neighbouring regions merge; a huge page across them would cost an idle session 2 MiB.
  madvise(region, size, MADV_NOHUGEPAGE);
}

// Setting the threshold also keeps it: by itself it rises to the largest block that was ever freed, and how
// much free memory is kept at the end of the heap rises with it.
void keepLargeAllocationsApart() { mallopt(M_MMAP_THRESHOLD, 128 * 1024); }

void giveBackFreedMemory() { malloc_trim(0); }

std::string executablePath() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

const bool hasOldBash = false;

}  // namespace velotide::platform
