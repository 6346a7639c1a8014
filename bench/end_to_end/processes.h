#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace velotide::bench {

// Owns one file descriptor.
class Descriptor {
 public:
  explicit Descriptor(int value = -1) : value_(value) {}
  Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  ~Descriptor() { close(); }
  int get() const { return value_; }
  void close();

 private:
  int value_;
};

// Owns one child: it is killed and reaped, at the latest, when its owner goes.
class Process {
 public:
  explicit Process(pid_t id = -1) : id_(id) {}
  Process(Process&& other) noexcept : id_(std::exchange(other.id_, -1)) {}
  Process& operator=(Process&& other) noexcept;
  ~Process() { end(); }
  pid_t id() const { return id_; }
  void end();
  // Waits for it to end by itself; its exit status, or minus the signal that ended it. Absent, and the child
  // still there, when `patience` passed first.
  std::optional<int> awaitEnd(std::chrono::milliseconds patience);

 private:
  pid_t id_;
};

struct TerminalProcess {
  Descriptor master;
  Process process;
};

struct SocketPair {
  Descriptor here;
  Descriptor there;
};

// Runs `body` in a forked child, which exits with what it returns and dies with this program.
Process forkProcess(const std::function<int()>& body);
// The same on a new pseudo-terminal.
TerminalProcess forkOnTerminal(const std::function<int()>& body);

// Replaces the calling process; returns, with the status to exit with, only when that failed.
int execute(const std::vector<std::string>& arguments,
            const std::vector<std::pair<std::string, std::string>>& environment = {});

// Waits a moment for the adopted children of a process that was ended, which the end of their terminals ends.
void awaitOrphans();
// Whether this process has a child, adopted ones included.
bool hasChildren();

SocketPair socketPair();

}  // namespace velotide::bench
