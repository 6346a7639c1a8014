#include "end_to_end/processes.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <exception>

#include "end_to_end/platform.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

// Never returns: what the parent owns must not be destroyed a second time in the child.
[[noreturn]] void runAsChild(const std::function<int()>& body) {
  endWithParent();
  restoreSignals();
  int status = 1;
  try {
    status = body();
  } catch (const std::exception&) {
  }
  ::_exit(status);
}

void closeOnExec(int descriptor) {
  if (::fcntl(descriptor, F_SETFD, FD_CLOEXEC) != 0) failWithErrno("close-on-exec");
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(value_, other.value_);
  return *this;
}

void Descriptor::close() {
  if (value_ >= 0) ::close(value_);
  value_ = -1;
}

Process& Process::operator=(Process&& other) noexcept {
  std::swap(id_, other.id_);
  return *this;
}

void Process::end() {
  if (id_ < 0) return;
  ::kill(id_, SIGKILL);
  while (::waitpid(id_, nullptr, 0) < 0 && errno == EINTR) {
  }
  id_ = -1;
}

std::optional<int> Process::awaitEnd(std::chrono::milliseconds patience) {
  const auto deadline = attendedNow() + patience;
  int status = 0;
  while (::waitpid(id_, &status, WNOHANG) != id_) {
    if (attendedNow() > deadline) return std::nullopt;
    pause(std::chrono::milliseconds(5));
  }
  id_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

Process forkProcess(const std::function<int()>& body) {
  const pid_t id = ::fork();
  if (id < 0) failWithErrno("fork");
  if (id == 0) runAsChild(body);
  return Process(id);
}

TerminalProcess forkOnTerminal(const std::function<int()>& body) {
  int master = -1;
  const pid_t id = forkTerminal(master);
  if (id < 0) failWithErrno("forkpty");
  if (id == 0) runAsChild(body);
  TerminalProcess child{Descriptor(master), Process(id)};
  closeOnExec(master);
  return child;
}

int execute(const std::vector<std::string>& arguments,
            const std::vector<std::pair<std::string, std::string>>& environment) {
  for (const auto& [name, value] : environment) ::setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> pointers;
  for (const std::string& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  ::execv(pointers[0], pointers.data());
  return 127;
}

void awaitOrphans() {
  const auto deadline = Clock::now() + std::chrono::seconds(3);
  while (Clock::now() < deadline) {
    const pid_t reaped = ::waitpid(-1, nullptr, WNOHANG);
    if (reaped < 0 && errno == ECHILD) return;
    if (reaped == 0) ::usleep(1000);
  }
}

bool hasChildren() { return ::waitpid(-1, nullptr, WNOHANG) >= 0; }

SocketPair socketPair() {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) failWithErrno("socketpair");
  SocketPair pair{Descriptor(ends[0]), Descriptor(ends[1])};
  closeOnExec(ends[0]);
  closeOnExec(ends[1]);
  return pair;
}

}  // namespace velotide::bench
