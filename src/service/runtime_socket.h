#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "base/file_descriptor.h"

namespace velotide {

// The name of a listening socket in the file system. It is removed with the object, unless another socket has
// it by then: who removed the root directory underneath may have started another service there.
class SocketFile {
 public:
  SocketFile() = default;
  ~SocketFile();
  SocketFile(const SocketFile&) = delete;
  SocketFile& operator=(const SocketFile&) = delete;

  // Binds the socket to `path`, where nothing may be. Throws unavailable.
  void bind(int socket, const std::string& path);

 private:
  std::string path_;
  dev_t device_ = 0;
  ino_t node_ = 0;
};

// What the service places in its root directory for clients: the directory with its checks, the lock that
// keeps a second instance out, the capability token with its file, and the listening socket. All of it lives
// as long as the object; afterwards the socket file is gone and the lock is free.
class RuntimeSocket {
 public:
  // `root` must be an absolute path. Throws Failure<RuntimeFailure> or, where the file system's own error is
  // the answer, SystemFailure.
  explicit RuntimeSocket(const std::string& root);
  int fd() const { return listener_.get(); }
  const std::string& root() const { return root_; }
  const std::string& capability() const { return capability_; }

  struct Accepted {
    // Open when somebody was admitted: same user, set up like the listener.
    FileDescriptor connection;
    // The system refuses to give a connection, for want of descriptors or memory or by its policy; the
    // socket stays readable meanwhile.
    bool refused = false;
  };
  Accepted acceptClient() const;

  // Whether the token is this run's; constant time.
  bool authorizes(const std::optional<std::string>& capability) const;

  // Close-on-exec, non-blocking, no broken-pipe signal. Throws unavailable.
  static void nonblocking(int descriptor);

 private:
  void claimRoot();
  void lock();
  void listen();
  void publishCapability();

  std::string root_;
  std::string path_;
  std::string capability_;
  // In this order, so that the socket file goes before the lock is let go.
  FileDescriptor lock_;
  SocketFile file_;
  FileDescriptor listener_;
};

}  // namespace velotide
