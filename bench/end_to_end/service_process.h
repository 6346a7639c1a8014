#pragma once

#include <sys/resource.h>

#include <optional>
#include <string>

#include "end_to_end/processes.h"
#include "end_to_end/wire_client.h"

namespace velotide::bench {

// A private directory under /tmp, with a path short enough for a socket, removed with all it holds.
class PrivateDirectory {
 public:
  PrivateDirectory();
  PrivateDirectory(const PrivateDirectory&) = delete;
  ~PrivateDirectory();
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// A running service on a root directory of its own, which has answered its first hello. It is killed when its
// owner goes, and its sessions' children have gone by then too.
class ServiceProcess {
 public:
  explicit ServiceProcess(const std::string& executable);
  ServiceProcess(const ServiceProcess&) = delete;
  ~ServiceProcess();

  pid_t id() const { return process_.id(); }
  const std::string& root() const { return root_.path(); }
  // From before the fork to the answer.
  double secondsToHello() const { return secondsToHello_; }
  WireClient connect() const;
  // Waits for the end of a service that was asked to shut down; as Process::awaitEnd.
  std::optional<int> awaitEnd(std::chrono::milliseconds patience) { return process_.awaitEnd(patience); }

 private:
  PrivateDirectory root_;
  Process process_;
  std::string capability_;
  double secondsToHello_ = 0;
};

// Raises the limit of open descriptors, for this process and what it starts, while it lives; to what the hard
// limit allows where the system does not permit to pass that.
class RaisedDescriptorLimit {
 public:
  explicit RaisedDescriptorLimit(rlim_t wanted);
  RaisedDescriptorLimit(const RaisedDescriptorLimit&) = delete;
  ~RaisedDescriptorLimit();
  rlim_t reached() const { return reached_; }

 private:
  rlimit before_{};
  rlim_t reached_ = 0;
};

}  // namespace velotide::bench
