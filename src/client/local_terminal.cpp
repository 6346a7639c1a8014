#include "client/local_terminal.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "client/notices.h"
#include "client/trouble.h"
#include "protocol/limits.h"

namespace velotide::client {

namespace {

constexpr std::int64_t largestSize = 1000;

}  // namespace

bool LocalTerminal::isPresent() { return ::isatty(STDIN_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 1; }

bool LocalTerminal::isColored() {
  const char* value = std::getenv("NO_COLOR");
  return !value || *value == '\0';
}

std::optional<WindowSize> LocalTerminal::sizeIfPresent() {
  winsize size{};
  for (const int descriptor : {STDOUT_FILENO, STDIN_FILENO, STDERR_FILENO}) {
    if (::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0)
      return WindowSize{std::min<std::int64_t>(size.ws_col, largestSize),
                        std::min<std::int64_t>(size.ws_row, largestSize)};
  }
  return std::nullopt;
}

WindowSize LocalTerminal::size() {
  return sizeIfPresent().value_or(
      WindowSize{TerminalRuntimeLimits::defaultColumns, TerminalRuntimeLimits::defaultRows});
}

LocalTerminal::LocalTerminal() {
  if (::tcgetattr(STDIN_FILENO, &ordinary_) != 0)
    throw Trouble("The terminal cannot be used. Give the command in another one.");
  if (const char* name = ::ttyname(STDOUT_FILENO))
    output_ = FileDescriptor(::open(name, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

int LocalTerminal::input() const { return STDIN_FILENO; }

void LocalTerminal::makeRaw() {
  termios raw = ordinary_;
  ::cfmakeraw(&raw);
  raw.c_cc[VMIN] = 1;
  raw.c_cc[VTIME] = 0;
  while (::tcsetattr(STDIN_FILENO, TCSANOW, &raw) != 0) {
    if (errno != EINTR) throw Trouble("The terminal cannot be switched to raw mode. Try another one.");
  }
  isRaw_ = true;
}

void LocalTerminal::restore() {
  if (!isRaw_) return;
  isRaw_ = false;
  // In the background the change would stop this process and leave the terminal raw.
  struct sigaction ignore {};
  struct sigaction before {};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGTTOU, &ignore, &before);
  while (::tcsetattr(STDIN_FILENO, TCSANOW, &ordinary_) != 0 && errno == EINTR) {
  }
  ::sigaction(SIGTTOU, &before, nullptr);
}

std::ptrdiff_t LocalTerminal::write(ByteView bytes) {
  const ssize_t written = ::write(output(), bytes.data(), bytes.size());
  if (written >= 0) return written;
  return errno == EAGAIN || errno == EINTR ? 0 : -1;
}

void LocalTerminal::writeAll(std::string_view text, Seconds limit) {
  ByteView rest = bytesOf(text);
  while (!rest.empty()) {
    if (!waitFor(output(), POLLOUT, limit)) return;
    const std::ptrdiff_t written = write(rest);
    if (written < 0) return;
    rest = rest.subspan(static_cast<std::size_t>(written));
  }
}

}  // namespace velotide::client
