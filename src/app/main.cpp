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

void terminalRuntimeMain(int count, char** arguments) {
  using namespace velotide;
  if (count != 3 || std::string_view(arguments[1]) != "--root") throw Failure(RuntimeFailure::invalidRequest);
  ::umask(ownerOnly);
  ::setsid();
  platform::giveBackFreedMemory();
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
