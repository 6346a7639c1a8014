#include "terminal/pseudo_terminal.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "base/file_descriptor.h"
#include "base/platform.h"

namespace {

using velotide::FileDescriptor;

constexpr int verdictMilliseconds = 3000;

struct Program {
  const char* executable;
  char* const* arguments;
  char* const* environment;
  const char* directory;
};

winsize windowSize(std::int32_t columns, std::int32_t rows) {
  winsize size{};
  size.ws_col = static_cast<unsigned short>(columns);
  size.ws_row = static_cast<unsigned short>(rows);
  return size;
}

bool setCloseOnExec(int descriptor) { return ::fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0; }

// The child's way from fork to exec: async-signal-safe calls alone. An error goes to the parent as an errno
// over `verdict`; a successful exec closes it.
[[noreturn]] void becomeProgram(const Program& program, int verdict) {
  velotide::platform::closeDescriptorsFrom(STDERR_FILENO + 1, verdict);
  // Whatever the service or its launcher ignores; those that cannot be set keep their default.
  for (int number = 1; number < NSIG; ++number) ::signal(number, SIG_DFL);
  if (::chdir(program.directory) == 0) ::execve(program.executable, program.arguments, program.environment);
  const int error = errno;
  [[maybe_unused]] const ssize_t written = ::write(verdict, &error, sizeof error);
  ::_exit(127);
}

// 0 once the child runs its program, else the error that kept it from doing so.
int awaitVerdict(int verdict) {
  pollfd entry{verdict, POLLIN | POLLHUP, 0};
  int ready;
  do {
    ready = ::poll(&entry, 1, verdictMilliseconds);
  } while (ready < 0 && errno == EINTR);
  if (ready == 0) return ETIMEDOUT;
  if (ready < 0) return errno;

  int error = EIO;
  const ssize_t count = ::read(verdict, &error, sizeof error);
  if (count < 0) return errno;
  if (count == 0) return 0;
  return count == sizeof error ? error : EIO;
}

void killAndReap(pid_t child) {
  ::kill(child, SIGKILL);
  while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

int failed(int error) {
  errno = error;
  return -1;
}

}  // namespace

int velotide_pty_spawn(const char* executable, char* const arguments[], char* const environment[],
                       const char* directory, std::int32_t columns, std::int32_t rows, std::int32_t* pid) {
  int ends[2];
  if (::pipe(ends) != 0) return -1;
  FileDescriptor verdict(ends[0]);
  FileDescriptor childEnd(ends[1]);
  if (!setCloseOnExec(verdict.get()) || !setCloseOnExec(childEnd.get())) return failed(errno);

  int opened = -1;
  const pid_t child = velotide::platform::forkTerminal(&opened, windowSize(columns, rows));
  if (child == 0) becomeProgram({executable, arguments, environment, directory}, childEnd.get());
  const int forkError = errno;
  childEnd.close();
  if (child < 0) return failed(forkError);

  FileDescriptor master(opened);
  int error = awaitVerdict(verdict.get());
  if (error == 0 && (!setCloseOnExec(master.get()) || ::fcntl(master.get(), F_SETFL, O_NONBLOCK) != 0)) {
    error = errno;
  }
  if (error != 0) {
    master.close();
    killAndReap(child);
    return failed(error);
  }
  *pid = child;
  return master.release();
}

int velotide_pty_resize(int master, std::int32_t columns, std::int32_t rows) {
  if (!velotide_pty_is_side(columns) || !velotide_pty_is_side(rows)) return failed(EINVAL);
  const winsize size = windowSize(columns, rows);
  return ::ioctl(master, TIOCSWINSZ, &size);
}

int velotide_pty_echo(int master) {
  termios attributes{};
  if (::tcgetattr(master, &attributes) != 0) return -1;
  return (attributes.c_lflag & ECHO) != 0 ? 1 : 0;
}

int velotide_pty_poll_exit(std::int32_t pid, std::int32_t* status) {
  int raw = 0;
  pid_t reaped;
  do {
    reaped = ::waitpid(pid, &raw, WNOHANG);
  } while (reaped < 0 && errno == EINTR);
  if (reaped <= 0) return reaped;
  if (WIFEXITED(raw)) {
    *status = WEXITSTATUS(raw);
  } else if (WIFSIGNALED(raw)) {
    *status = 128 + WTERMSIG(raw);
  } else {
    *status = -1;
  }
  return 1;
}
