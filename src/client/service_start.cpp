#include "client/service_start.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/platform.h"
#include "client/search_path.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

constexpr Seconds startDeadline = 10;
constexpr Seconds helloDeadline = 5;

std::string serviceExecutable() {
  const std::string own = platform::executablePath();
  std::string beside = own.substr(0, own.rfind('/') + 1) + "velotide-runtime";
  if (beside.front() == '/' && ::access(beside.c_str(), X_OK) == 0) return beside;
  const FoundProgram found = findProgram("velotide-runtime");
  if (found.path.empty())
    throw Trouble("velotide-runtime was found neither beside " + own + " nor in PATH. Install it there.");
  return found.path;
}

// Between fork and exec: nothing of this process may reach the service but its environment.
[[noreturn]] void becomeService(const char* executable, const char* root) {
  const int null = ::open("/dev/null", O_RDWR);
  for (int stream = 0; stream <= 2; ++stream) ::dup2(null, stream);
  platform::closeDescriptorsFrom(3, -1);
  for (const int name : {SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGPIPE, SIGTSTP, SIGCHLD})
    ::signal(name, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  // Its own process session from the first moment, so that no key of this terminal reaches it.
  ::setsid();
  if (::chdir("/") != 0) ::_exit(1);
  ::execl(executable, executable, "--root", root, static_cast<char*>(nullptr));
  ::_exit(1);
}

pid_t launchService(const std::string& executable, const std::string& root) {
  const pid_t child = ::fork();
  if (child < 0) throw Trouble("The service could not be started: no process is left. Close some programs.");
  if (child == 0) becomeService(executable.c_str(), root.c_str());
  return child;
}

// Whether a service answered; throws what tells that trying again is of no use.
bool answers(const ServiceRoot& root, Seconds limit) {
  try {
    Connection connection = root.connect();
    connection.queue(TerminalRuntimeRequest::make(TerminalRuntimeAction::hello));
    const Uptime deadline = now() + limit;
    while (connection.flush() && waitFor(connection.descriptor(), POLLIN, deadline - now())) {
      const bool open = connection.receive();
      if (connection.next()) return true;
      // Closed unanswered: it has all the clients it takes, so it runs.
      if (!open) return true;
    }
    throw Trouble("The service at " + root.path() +
                  " does not answer. Find it with `pgrep -f velotide-runtime` "
                  "and continue (SIGCONT) or end it.");
  } catch (const Trouble& trouble) {
    if (trouble.status != ExitStatus::notRunning) throw;
    return false;
  }
}

}  // namespace

void ensureServiceRuns(const ServiceRoot& root, const Notices& notices) {
  if (answers(root, helloDeadline)) return;
  const std::string executable = serviceExecutable();
  Patience patience(notices, "the service at " + root.path() + " to start", startDeadline);
  pid_t child = -1;
  while (!patience.isSpent()) {
    if (child < 0) child = launchService(executable, root.path());
    if (answers(root, helloDeadline)) return;
    // A service that ended at once lost the race for the root, or met one that was just going away.
    if (::waitpid(child, nullptr, WNOHANG) == child) child = -1;
    patience.pause();
  }
  throw Trouble("The service could not be started at " + root.path() +
                ". Check that the directory can be written, is yours alone (mode 700) and on a local disk.");
}

}  // namespace velotide::client
