#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string_view>

#include "base/platform.h"
#include "base/standard_descriptors.h"
#include "base/time.h"
#include "protocol/runtime_failure.h"
#include "service/runtime_server.h"

namespace {

constexpr mode_t ownerOnly = 0077;

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
  // One of the service in such a place would also be lost at a child's fork.
  fillStandardDescriptors(O_RDWR);
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
    // Whoever would read this may be gone.
    ::signal(SIGPIPE, SIG_IGN);
    std::fputs("Velotide Runtime could not start or continue.\n", stderr);
    return 1;
  }
}
