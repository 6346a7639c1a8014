#include "faults/fault_layer.h"

#include <dirent.h>
#include <errno.h>
#include <poll.h>
#include <pty.h>
#include <stdarg.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <optional>
#include <type_traits>

namespace velotide::faults {

namespace {

constexpr std::array names{
#define VELOTIDE_FAULT_NAME(name) #name,
    VELOTIDE_FAULT_CALLS(VELOTIDE_FAULT_NAME)
#undef VELOTIDE_FAULT_NAME
};

std::vector<Fault> scheduled;
std::array<std::size_t, names.size()> counts{};
std::size_t touchedCalls = 0;
std::size_t busy = 0;

// What befalls the call being made.
std::optional<Fault> befalling(Call call) {
  if (!serving) return std::nullopt;
  const std::size_t number = ++counts[static_cast<std::size_t>(call)];
  const auto hit = std::ranges::find_if(scheduled, [&](const Fault& fault) {
    return fault.call == call && fault.first <= number && number <= fault.last &&
           (number - fault.first) % fault.every == 0;
  });
  if (hit == scheduled.end()) return std::nullopt;
  ++touchedCalls;
  return *hit;
}

template <typename Result, typename... Arguments>
Result through(Call call, Result (*real)(Arguments...), std::type_identity_t<Arguments>... arguments) {
  const std::optional<Fault> fault = befalling(call);
  if (!fault) return real(arguments...);
  errno = fault->error;
  if constexpr (std::is_same_v<Result, void*>) return MAP_FAILED;
  if constexpr (std::is_pointer_v<Result>) return nullptr;
  if constexpr (!std::is_pointer_v<Result>) return static_cast<Result>(fault->result);
}

// For calls that move bytes; the size is the argument that may be cut.
template <typename Move>
ssize_t moved(Call call, std::size_t size, Move move) {
  const std::optional<Fault> fault = befalling(call);
  if (!fault) return move(size);
  if (fault->atMost > 0) return move(std::min(size, fault->atMost));
  errno = fault->error;
  return fault->result;
}

}  // namespace

std::string nameOf(const Fault& fault) {
  const char* how = fault.error != 0 ? ::strerrorname_np(fault.error) : fault.atMost > 0 ? "cut" : "zero";
  return std::string(names[static_cast<std::size_t>(fault.call)]) + "_" + how;
}

void schedule(std::vector<Fault> faults) {
  scheduled = std::move(faults);
  counts.fill(0);
  touchedCalls = busy = 0;
}

std::size_t count(Call call) { return counts[static_cast<std::size_t>(call)]; }
std::size_t touched() { return touchedCalls; }
std::size_t busyPolls() { return busy; }

}  // namespace velotide::faults

using namespace velotide::faults;

#define VELOTIDE_REAL(result, name, parameters) \
  extern "C" result __real_##name parameters;   \
  extern "C" result __wrap_##name parameters;   \
  extern "C" result __wrap_##name parameters
#define VELOTIDE_WRAP(result, name, parameters, ...) \
  VELOTIDE_REAL(result, name, parameters) { return through(Call::name, __real_##name, __VA_ARGS__); }

VELOTIDE_WRAP(int, accept, (int socket, sockaddr* from, socklen_t* size), socket, from, size)
VELOTIDE_WRAP(int, bind, (int socket, const sockaddr* to, socklen_t size), socket, to, size)
VELOTIDE_WRAP(int, chmod, (const char* path, mode_t mode), path, mode)
VELOTIDE_WRAP(DIR*, fdopendir, (int file), file)
VELOTIDE_WRAP(int, flock, (int file, int operation), file, operation)
VELOTIDE_WRAP(int, fstat, (int file, struct stat* status), file, status)
VELOTIDE_WRAP(int, fstatat, (int at, const char* path, struct stat* status, int flags), at, path, status,
              flags)
VELOTIDE_WRAP(int, getsockopt, (int socket, int level, int name, void* value, socklen_t* size), socket, level,
              name, value, size)
VELOTIDE_WRAP(int, kill, (pid_t child, int number), child, number)
VELOTIDE_WRAP(int, listen, (int socket, int backlog), socket, backlog)
VELOTIDE_WRAP(int, lstat, (const char* path, struct stat* status), path, status)
VELOTIDE_WRAP(int, mkdir, (const char* path, mode_t mode), path, mode)
VELOTIDE_WRAP(void*, mmap, (void* at, std::size_t size, int rights, int flags, int file, off_t offset), at,
              size, rights, flags, file, offset)
VELOTIDE_WRAP(int, pipe, (int* ends), ends)
VELOTIDE_WRAP(dirent*, readdir, (DIR * directory), directory)
VELOTIDE_WRAP(int, rename, (const char* from, const char* to), from, to)
VELOTIDE_WRAP(int, socket, (int domain, int type, int protocol), domain, type, protocol)
VELOTIDE_WRAP(int, stat, (const char* path, struct stat* status), path, status)
VELOTIDE_WRAP(int, tcgetattr, (int terminal, struct termios* attributes), terminal, attributes)
VELOTIDE_WRAP(pid_t, tcgetpgrp, (int terminal), terminal)
VELOTIDE_WRAP(int, unlink, (const char* path), path)
VELOTIDE_WRAP(int, unlinkat, (int at, const char* path, int flags), at, path, flags)
VELOTIDE_WRAP(pid_t, waitpid, (pid_t child, int* status, int options), child, status, options)

VELOTIDE_REAL(ssize_t, read, (int file, void* buffer, std::size_t size)) {
  return moved(Call::read, size, [&](std::size_t most) { return __real_read(file, buffer, most); });
}
VELOTIDE_REAL(ssize_t, write, (int file, const void* buffer, std::size_t size)) {
  return moved(Call::write, size, [&](std::size_t most) { return __real_write(file, buffer, most); });
}
VELOTIDE_REAL(ssize_t, send, (int socket, const void* buffer, std::size_t size, int flags)) {
  return moved(Call::send, size, [&](std::size_t most) { return __real_send(socket, buffer, most, flags); });
}

// A close that fails has closed all the same.
VELOTIDE_REAL(int, close, (int file)) {
  const std::optional<Fault> fault = befalling(Call::close);
  const int result = __real_close(file);
  if (!fault) return result;
  errno = fault->error;
  return -1;
}

VELOTIDE_REAL(int, poll, (pollfd * entries, nfds_t size, int milliseconds)) {
  const int ready = through(Call::poll, __real_poll, entries, size, milliseconds);
  if (serving && ready > 0) ++busy;
  return ready;
}

VELOTIDE_REAL(pid_t, forkpty, (int* master, char* name, const termios* attributes, const winsize* size)) {
  const pid_t child = through(Call::forkpty, __real_forkpty, master, name, attributes, size);
  if (child == 0) serving = false;
  return child;
}

// The last argument of these is there on some calls only; what is read in its place is then not looked at.
#define VELOTIDE_WRAP_VARIADIC(name, parameters, last, argument, ...) \
  VELOTIDE_REAL(int, name, parameters) {                              \
    va_list list;                                                     \
    va_start(list, last);                                             \
    const auto value = va_arg(list, argument);                        \
    va_end(list);                                                     \
    const std::optional<Fault> fault = befalling(Call::name);         \
    if (!fault) return __real_##name(__VA_ARGS__, value);             \
    errno = fault->error;                                             \
    return -1;                                                        \
  }

VELOTIDE_WRAP_VARIADIC(fcntl, (int file, int command, ...), command, long, file, command)
VELOTIDE_WRAP_VARIADIC(ioctl, (int file, unsigned long request, ...), request, void*, file, request)
VELOTIDE_WRAP_VARIADIC(open, (const char* path, int flags, ...), flags, mode_t, path, flags)
VELOTIDE_WRAP_VARIADIC(openat, (int at, const char* path, int flags, ...), flags, mode_t, at, path, flags)
