#include <errno.h>
#include <libproc.h>
#include <mach-o/dyld.h>
#include <mach/vm_inherit.h>
#include <malloc/malloc.h>
#include <sys/mman.h>
#include <sys/proc_info.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <util.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "base/platform.h"

namespace velotide::platform {

// Stands still while the machine sleeps, as leases should.
const clockid_t uptimeClock = CLOCK_UPTIME_RAW;

bool fillRandom(std::span<std::uint8_t> bytes) { return getentropy(bytes.data(), bytes.size()) == 0; }

std::optional<uid_t> peerUser(int socket) {
  uid_t user = 0;
  gid_t group = 0;
  if (getpeereid(socket, &user, &group) != 0) return std::nullopt;
  return user;
}

bool suppressBrokenPipeSignal(int socket) {
  const int on = 1;
  return setsockopt(socket, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on) == 0;
}

ssize_t sendQuietly(int socket, ByteView bytes) { return ::send(socket, bytes.data(), bytes.size(), 0); }

sockaddr_un localAddress(const std::string& path) {
  sockaddr_un address{};
  address.sun_len = sizeof address;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path - 1));
  return address;
}

pid_t forkTerminal(int* master, const winsize& size) {
  winsize copy = size;
  return forkpty(master, nullptr, nullptr, &copy);
}

void closeDescriptorsFrom(int first, int kept) {
  // The kernel lists what is open; closing by number up to the limit could take a million calls.
  proc_fdinfo open[1024];
  for (;;) {
    const int bytes = proc_pidinfo(getpid(), PROC_PIDLISTFDS, 0, open, sizeof open);
    bool closedAny = false;
    for (int index = 0; index < bytes / static_cast<int>(sizeof open[0]); ++index) {
      const int descriptor = open[index].proc_fd;
      if (descriptor < first || descriptor == kept) continue;
      closedAny |= close(descriptor) == 0;
    }
    // A full table may have hidden more.
    if (bytes < static_cast<int>(sizeof open) || !closedAny) return;
  }
}

void keepFromChildren(void* region, std::size_t size) { minherit(region, size, VM_INHERIT_NONE); }

// The system's allocator does so by itself.
void keepLargeAllocationsApart() {}

void giveBackFreedMemory() { malloc_zone_pressure_relief(nullptr, 0); }

std::string executablePath() {
  char path[PATH_MAX];
  std::uint32_t size = sizeof path;
  return _NSGetExecutablePath(path, &size) == 0 ? std::string(path) : std::string();
}

const bool hasOldBash = true;

}  // namespace velotide::platform
