#include "terminal/pseudo_terminal.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

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

std::string outputUntilEnd(const Child& child) {
  std::string output;
  for (;;) {
    pollfd entry{child.master.get(), POLLIN, 0};
    if (poll(&entry, 1, 10000) <= 0) return output + "<timeout>";
    char buffer[4096];
    const ssize_t count = read(child.master.get(), buffer, sizeof buffer);
    if (count <= 0) return output;
    output.append(buffer, static_cast<std::size_t>(count));
  }
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

TEST(PseudoTerminal, GivesTheChildSizeDirectoryAndThreeDescriptors) {
  // Descriptors of the parent that a careless child would keep.
  const FileDescriptor low(open("/dev/null", O_RDONLY));
  const FileDescriptor high(fcntl(low.get(), F_DUPFD, 900));
  const Child child =
      spawn("stty size; pwd; for d in /dev/fd/*; do [ -e $d ] && echo ${d##*/}; done | tr '\\n' ' '", "/usr");
  EXPECT_EQ(outputUntilEnd(child).substr(0, 15), "17 91\r\n/usr\r\n0 ");
  EXPECT_EQ(waitForExit(child), 0);
  // The shell may hold one of its own while it lists; the parent's must not be among them.
  const Child probe = spawn("[ -e /dev/fd/" + std::to_string(low.get()) +
                            " ] && exit 1; [ -e /dev/fd/900 ] && exit 2; exit 0");
  outputUntilEnd(probe);
  EXPECT_EQ(waitForExit(probe), 0);
}

TEST(PseudoTerminal, ReturnsTheErrorOfAFailedStartAndLeavesNoChild) {
  struct Row {
    const char* directory;
    const char* executable;
    int error;
  };
  for (const Row& row : {Row{"/nonexistent", "/bin/sh", ENOENT}, Row{"/", "/nonexistent", ENOENT},
                         Row{"/", "/etc/passwd", EACCES}, Row{"/etc/passwd", "/bin/sh", ENOTDIR}}) {
    errno = 0;
    const Child child = spawn("exit 0", row.directory, row.executable);
    EXPECT_FALSE(child.master.isOpen());
    EXPECT_EQ(errno, row.error) << row.directory << " " << row.executable;
    EXPECT_EQ(child.pid, 0);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
  }
}

TEST(PseudoTerminal, MasterNeverBlocksAndIsNotInherited) {
  const Child child = spawn("read line; stty -echo; echo off; read line");
  EXPECT_NE(fcntl(child.master.get(), F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(fcntl(child.master.get(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_EQ(velotide_pty_echo(child.master.get()), 1);
  ASSERT_EQ(write(child.master.get(), "\n", 1), 1);
  std::string seen;
  while (seen.find("off") == std::string::npos) {
    pollfd entry{child.master.get(), POLLIN, 0};
    ASSERT_EQ(poll(&entry, 1, 10000), 1);
    char buffer[256];
    const ssize_t count = read(child.master.get(), buffer, sizeof buffer);
    ASSERT_GT(count, 0);
    seen.append(buffer, static_cast<std::size_t>(count));
  }
  EXPECT_EQ(velotide_pty_echo(child.master.get()), 0);
  ASSERT_EQ(write(child.master.get(), "\n", 1), 1);
  EXPECT_EQ(waitForExit(child), 0);
  EXPECT_EQ(velotide_pty_echo(-1), -1);
}

TEST(PseudoTerminal, ResizesWithinItsBounds) {
  const Child child = spawn("read line");
  for (const auto& [columns, rows, answer] : {std::tuple{0, 24, -1},
                                              {80, 0, -1},
                                              {1001, 24, -1},
                                              {80, 1001, -1},
                                              {-1, 24, -1},
                                              {1, 1, 0},
                                              {1000, 1000, 0}}) {
    errno = 0;
    EXPECT_EQ(velotide_pty_resize(child.master.get(), columns, rows), answer) << columns << "x" << rows;
    EXPECT_EQ(errno, answer < 0 ? EINVAL : 0);
  }
  winsize size{};
  ASSERT_EQ(ioctl(child.master.get(), TIOCGWINSZ, &size), 0);
  EXPECT_EQ(size.ws_col, 1000);
  ASSERT_EQ(write(child.master.get(), "\n", 1), 1);
  EXPECT_EQ(waitForExit(child), 0);
}

}  // namespace
}  // namespace velotide
