#include "terminal/pseudo_terminal.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <tuple>

#include "base/file_descriptor.h"

namespace velotide {
namespace {

struct Child {
  std::int32_t pid = 0;
  FileDescriptor master;
};

Child spawn(std::string script, const char* directory = "/", std::string executable = "/bin/sh") {
  std::string name = "sh", flag = "-c", path = "PATH=/usr/bin:/bin";
  char* arguments[] = {name.data(), flag.data(), script.data(), nullptr};
  char* environment[] = {path.data(), nullptr};
  Child child;
  child.master = FileDescriptor(
      velotide_pty_spawn(executable.c_str(), arguments, environment, directory, 91, 17, &child.pid));
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
  for (const auto& [script, status] : {std::pair{"exit 0", 0},
                                       {"exit 3", 3},
                                       {"exit 255", 255},
                                       {"kill -TERM $$", 143},
                                       {"kill -KILL $$", 137},
                                       {"kill -INT $$", 130}}) {
    EXPECT_EQ(waitForExit(spawn(script)), status) << script;
  }
  EXPECT_EQ(waitForExit(Child{getpid(), {}}), -99);
}

TEST(PseudoTerminal, KeepsTheDescriptorsOfTheServiceFromTheChild) {
  const FileDescriptor low(open("/dev/null", O_RDONLY));
  const FileDescriptor high(fcntl(low.get(), F_DUPFD, 900));
  const Child probe = spawn("[ -e /dev/fd/" + std::to_string(low.get()) +
                            " ] && exit 1; [ -e /dev/fd/900 ] && exit 2; exit 0");
  EXPECT_EQ(waitForExit(probe), 0);
}

TEST(PseudoTerminal, ReturnsTheErrorOfAFailedStartAndLeavesNoChild) {
  for (const auto& [directory, executable, error] : {std::tuple{"/nonexistent", "/bin/sh", ENOENT},
                                                     {"/", "/nonexistent", ENOENT},
                                                     {"/", "/etc/passwd", EACCES},
                                                     {"/etc/passwd", "/bin/sh", ENOTDIR}}) {
    errno = 0;
    const Child child = spawn("exit 0", directory, executable);
    EXPECT_FALSE(child.master.isOpen());
    EXPECT_EQ(errno, error) << directory << " " << executable;
    EXPECT_EQ(child.pid, 0);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
  }
}

TEST(PseudoTerminal, MasterNeverBlocksAndIsNotInherited) {
  const Child child = spawn("exit 0");
  EXPECT_NE(fcntl(child.master.get(), F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(fcntl(child.master.get(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_EQ(waitForExit(child), 0);
}

}  // namespace
}  // namespace velotide
