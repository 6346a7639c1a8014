#include "terminal/pseudo_terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <string>

#include "base/file_descriptor.h"

namespace velotide {
namespace {

TEST(PseudoTerminal, KeepsTheDescriptorsOfTheServiceFromTheChild) {
  const FileDescriptor low(open("/dev/null", O_RDONLY));
  const FileDescriptor high(fcntl(low.get(), F_DUPFD, 900));
  std::string script =
      "[ -e /dev/fd/" + std::to_string(low.get()) + " ] && exit 1; [ -e /dev/fd/900 ] && exit 2; exit 0";
  std::string name = "sh", flag = "-c", path = "PATH=/usr/bin:/bin";
  char* arguments[] = {name.data(), flag.data(), script.data(), nullptr};
  char* environment[] = {path.data(), nullptr};
  std::int32_t child = 0;
  const FileDescriptor master(velotide_pty_spawn("/bin/sh", arguments, environment, "/", 91, 17, &child));
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace velotide
