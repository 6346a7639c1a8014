#include "client/service_root.h"

#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "base/file_descriptor.h"
#include "base/platform.h"
#include "base/private_files.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

// The service's own limit on the path of its socket.
constexpr std::size_t socketPathLimit = 100;
constexpr std::size_t capabilityLength = 72;

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

std::string homeDirectory() {
  if (std::string home = variable("HOME"); !home.empty()) return home;
  const passwd* entry = ::getpwuid(::getuid());
  if (!entry) throw Trouble("No home directory is known for this user. Name a directory with --root.");
  return entry->pw_dir;
}

std::string chosenPath(const std::string& option) {
  if (!option.empty()) return option;
  if (std::string path = variable("VELOTIDE_ROOT"); !path.empty()) return path;
  if (std::string path = variable("XDG_RUNTIME_DIR"); !path.empty()) return path + "/velotide";
  return homeDirectory() + "/.local/state/velotide";
}

}  // namespace

ServiceRoot ServiceRoot::find(const std::string& option) {
  std::string path = chosenPath(option);
  if (path.front() != '/') {
    char current[PATH_MAX];
    if (!::getcwd(current, sizeof current))
      throw Trouble("The current directory is gone. Give --root as an absolute path.");
    path = std::string(current) + "/" + path;
  }
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  if ((path + "/runtime.sock").size() >= socketPathLimit)
    throw Trouble("The path " + path +
                  " is too long for a socket (at most 86 bytes). Name a shorter --root.");
  return ServiceRoot(std::move(path));
}

void ServiceRoot::failNotRunning() const {
  throw Trouble("No service is running at " + path_ + ". Start one with a session in it: velotide new",
                ExitStatus::notRunning);
}

void ServiceRoot::check() const {
  struct stat status {};
  if (::lstat(path_.c_str(), &status) != 0) {
    if (errno == ENOENT) return;
    throw Trouble(path_ + " is not yours to use: " + std::strerror(errno) + ". Name another with --root.");
  }
  if (!S_ISDIR(status.st_mode))
    throw Trouble(path_ + " is not a directory. Remove it or name another with --root.");
  if (status.st_uid != ::getuid())
    throw Trouble(path_ + " belongs to another user. Name a directory of your own with --root.");
  // Only what a service made its own is to be closed; others may need theirs open.
  const bool isServices = ::access((path_ + "/runtime.lock").c_str(), F_OK) == 0;
  if (!isPrivateDirectory(path_))
    throw Trouble(path_ + " is open to other users. " +
                  (isServices ? "Close it: chmod 700 " + path_ : "Name another with --root."));
}

Connection ServiceRoot::connect() const {
  check();
  const std::string path = path_ + "/runtime.sock";
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
  if (!socket.isOpen()) throw Trouble(std::string("No socket could be made: ") + std::strerror(errno) + ".");
  ::fcntl(socket.get(), F_SETFD, FD_CLOEXEC);
  platform::suppressBrokenPipeSignal(socket.get());
  if (platform::connectLocal(socket.get(), path) != 0) {
    const int error = errno;
    if (error == ENOENT) failNotRunning();
    if (error == ECONNREFUSED)
      throw Trouble("The socket at " + path_ +
                        " is stale: its service is gone, and its sessions with it. "
                        "The next `velotide new` starts another.",
                    ExitStatus::notRunning);
    throw Trouble("The service at " + path_ + " cannot be reached: " + std::strerror(error) +
                  ". Check who owns the directory, or name another with --root.");
  }
  // The key goes to nobody but a process of this user.
  if (platform::peerUser(socket.get()) != ::getuid())
    throw Trouble("The service at " + path_ + " belongs to another user. Name another --root.");
  return Connection(std::move(socket));
}

std::string ServiceRoot::capability() const {
  const std::string path = path_ + "/ui-capability";
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file.isOpen() && errno == ENOENT) failNotRunning();
  if (!file.isOpen() || !isPrivateFile(file.get()))
    throw Trouble("The key " + path +
                  " is not yours or is open to others. Stop the service, remove the file, "
                  "and start again.");
  std::string key(capabilityLength, '\0');
  const ssize_t count = ::read(file.get(), key.data(), key.size());
  key.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return key;
}

}  // namespace velotide::client
