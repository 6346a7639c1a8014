#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string_view>

#include "base/platform.h"
#include "base/time.h"
#include "protocol/runtime_failure.h"
#include "service/runtime_server.h"

namespace {

constexpr mode_t ownerOnly = 0077;

// A descriptor of the service in the place of a standard one would be written to, and lost at a child's fork.
void fillStandardDescriptors() {
  int descriptor;
  do {
    descriptor = ::open("/dev/null", O_RDWR | O_NOCTTY);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor >= 0) ::close(descriptor);
}

// What the launcher left of its own arrangements must not decide how children end, nor a file that may not
// grow how the service does.
void arrangeSignals() {
  ::signal(SIGCHLD, SIG_DFL);
  ::signal(SIGXFSZ, SIG_IGN);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

void terminalRuntimeMain(int count, char** arguments) {
  using namespace velotide;
  if (count != 3 || std::string_view(arguments[1]) != "--root") throw Failure(RuntimeFailure::invalidRequest);
  fillStandardDescriptors();
  arrangeSignals();
  ::umask(ownerOnly);
  ::setsid();
  platform::keepLargeAllocationsApart();
  const SystemClock clock;
  RuntimeServer server(arguments[2], clock);
  server.run();
}

}  // namespace

int main(int count, char** arguments) {
  try {
    terminalRuntimeMain(count, arguments);
    return 0;
  } catch (const std::exception&) {
    std::fputs("Velotide Runtime could not start or continue.\n", stderr);
    return 1;
  }
}
