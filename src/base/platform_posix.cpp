// What the platforms share once they have told in what they differ.
#include <sys/socket.h>

#include "base/platform.h"

namespace velotide::platform {

int bindLocal(int socket, const std::string& path) {
  const sockaddr_un address = localAddress(path);
  return ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

int connectLocal(int socket, const std::string& path) {
  const sockaddr_un address = localAddress(path);
  return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

}  // namespace velotide::platform
