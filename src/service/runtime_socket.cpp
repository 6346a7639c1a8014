#include "service/runtime_socket.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/platform.h"
#include "base/private_files.h"
#include "base/token.h"
#include "base/utf8.h"
#include "base/uuid.h"
#include "protocol/runtime_failure.h"

namespace velotide {

namespace {

// Shorter than the smallest address structure of the platforms, with a margin.
constexpr std::size_t maximumSocketPath = 100;
constexpr int backlog = 16;

// A trailing slash would make the directory check follow a link, with a dot behind it or without.
std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && (path.ends_with('/') || path.ends_with("/."))) path.pop_back();
  return path;
}

}  // namespace

void SocketFile::bind(int socket, const std::string& path) {
  require(platform::bindLocal(socket, path) == 0, RuntimeFailure::unavailable);
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    ::unlink(path.c_str());
    throw Failure(RuntimeFailure::unavailable);
  }
  path_ = path;
  device_ = status.st_dev;
  node_ = status.st_ino;
}

SocketFile::~SocketFile() {
  struct stat status {};
  if (path_.empty() || ::lstat(path_.c_str(), &status) != 0) return;
  if (status.st_dev == device_ && status.st_ino == node_) ::unlink(path_.c_str());
}

RuntimeSocket::RuntimeSocket(const std::string& root) : root_(withoutTrailingSlashes(root)) {
  claimRoot();
  lock();
  capability_ = makeToken();
  listen();
  publishCapability();
}

void RuntimeSocket::claimRoot() {
  // Its name goes into JSON files.
  require(root_.starts_with('/') && root_.find('\0') == std::string::npos && isValidUtf8(bytesOf(root_)),
          RuntimeFailure::invalidRequest);
  createPrivateDirectory(root_);
  require(isPrivateDirectory(root_), RuntimeFailure::invalidCapability);
  path_ = root_ + "/runtime.sock";
  require(path_.size() < maximumSocketPath, RuntimeFailure::invalidRequest);
}

void RuntimeSocket::lock() {
  const std::string path = root_ + "/runtime.lock";
  lock_ = FileDescriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
  require(lock_.isOpen() && isPrivateFile(lock_.get()), RuntimeFailure::unavailable);
  require(::flock(lock_.get(), LOCK_EX | LOCK_NB) == 0, RuntimeFailure::unavailable);
}

void RuntimeSocket::listen() {
  listener_ = FileDescriptor(::socket(AF_UNIX, SOCK_STREAM, 0));
  require(listener_.isOpen(), RuntimeFailure::unavailable);
  nonblocking(listener_.get());
  // The lock is ours: whatever lies here was left by a run that is over.
  require(::unlink(path_.c_str()) == 0 || errno == ENOENT, RuntimeFailure::unavailable);
  file_.bind(listener_.get(), path_);
  require(::chmod(path_.c_str(), 0600) == 0, RuntimeFailure::unavailable);
  require(::listen(listener_.get(), backlog) == 0, RuntimeFailure::unavailable);
}

void RuntimeSocket::publishCapability() {
  const std::string temporary = root_ + "/capability-" + Uuid::random().text();
  try {
    replacePrivateFile(root_ + "/ui-capability", temporary, bytesOf(capability_));
  } catch (const SystemFailure&) {
    throw Failure(RuntimeFailure::unavailable);
  }
}

RuntimeSocket::Accepted RuntimeSocket::acceptClient() const {
  FileDescriptor connection(::accept(listener_.get(), nullptr, nullptr));
  if (!connection.isOpen()) {
    const bool isPassing = errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
    return {{}, !isPassing};
  }
  if (platform::peerUser(connection.get()) != ::getuid()) return {};
  try {
    nonblocking(connection.get());
  } catch (const Failure<RuntimeFailure>&) {
    return {};
  }
  return {std::move(connection), false};
}

bool RuntimeSocket::authorizes(const std::optional<std::string>& capability) const {
  return capability && equalInConstantTime(*capability, capability_);
}

void RuntimeSocket::nonblocking(int descriptor) {
  require(::fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0, RuntimeFailure::unavailable);
  require(::fcntl(descriptor, F_SETFL, O_NONBLOCK) == 0, RuntimeFailure::unavailable);
  require(platform::suppressBrokenPipeSignal(descriptor), RuntimeFailure::unavailable);
}

}  // namespace velotide
