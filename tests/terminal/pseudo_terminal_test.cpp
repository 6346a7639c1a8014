#include "terminal/pseudo_terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "base/file_descriptor.h"

namespace velotide {
namespace {

struct Child {
  std::int32_t pid = 0;
  FileDescriptor master;
};

Child spawn(std::string script) {
  std::string name = "sh", flag = "-c", path = "PATH=/usr/bin:/bin";
  char* arguments[] = {name.data(), flag.data(), script.data(), nullptr};
  char* environment[] = {path.data(), nullptr};
  Child child;
  child.master =
      FileDescriptor(velotide_pty_spawn("/bin/sh", arguments, environment, "/", 91, 17, &child.pid));
  return child;
}

int waitForExit(const Child& child) {
  std::int32_t status = -7;
  for (;;) {
    const int polled = velotide_pty_poll_exit(child.pid, &status);
    if (polled != 0) return polled == 1 ? status : -99;
    EXPECT_EQ(status, -7) << "the status must not be written while the child runs";
    usleep(1000);
  }
}

TEST(PseudoTerminal, EncodesHowTheChildEnded) {
  for (const auto& [script, status] :
       {std::pair("exit 0", 0), std::pair("exit 3", 3), std::pair("exit 255", 255),
        std::pair("kill -TERM $$", 143), std::pair("kill -KILL $$", 137), std::pair("kill -INT $$", 130)})
    EXPECT_EQ(waitForExit(spawn(script)), status) << script;
  EXPECT_EQ(waitForExit(Child{getpid(), {}}), -99);
}

TEST(PseudoTerminal, KeepsTheDescriptorsOfTheServiceFromTheChild) {
  const FileDescriptor low(open("/dev/null", O_RDONLY));
  const FileDescriptor high(fcntl(low.get(), F_DUPFD, 900));
  const Child probe = spawn("[ -e /dev/fd/" + std::to_string(low.get()) +
                            " ] && exit 1; [ -e /dev/fd/900 ] && exit 2; exit 0");
  EXPECT_EQ(waitForExit(probe), 0);
}

}  // namespace
}  // namespace velotide
