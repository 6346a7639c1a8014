#include "client/private_record.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "base/file_descriptor.h"
#include "base/private_files.h"

namespace velotide::client {

namespace {

constexpr std::size_t readBytes = 128 * 1024;

}  // namespace

std::optional<ByteQueue> readPrivateFile(const std::string& path, std::size_t limit) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file.isOpen() && (errno == ENOENT || errno == ENOTDIR)) return std::nullopt;
  if (!file.isOpen() || !isPrivateFile(file.get()))
    throw Trouble(path + " is not yours alone and is not believed. Remove it.");
  std::optional<ByteQueue> content(std::in_place);
  for (;;) {
    const std::span<std::uint8_t> room = content->reserve(std::min(limit + 1 - content->size(), readBytes));
    const ssize_t count = ::read(file.get(), room.data(), room.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw Trouble(path + " cannot be read.");
    if (count == 0) return content;
    content->commit(static_cast<std::size_t>(count));
    if (content->size() > limit) throw Trouble(path + " is too long. Remove it.");
  }
}

}  // namespace velotide::client
