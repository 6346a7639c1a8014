#include "base/private_files.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/failure.h"

namespace velotide {

namespace {

constexpr mode_t othersBits = 0077;

bool makeDirectory(const std::string& path) { return ::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST; }

}  // namespace

void createPrivateDirectory(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    if (!makeDirectory(path.substr(0, slash)) && errno != EROFS && errno != EISDIR)
      throw systemFailure(errno);
  }
  if (!makeDirectory(path)) throw systemFailure(errno);
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) throw systemFailure(errno);
  if (!S_ISDIR(status.st_mode)) throw systemFailure(ENOTDIR);
}

bool isPrivateDirectory(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::getuid() &&
         (status.st_mode & othersBits) == 0;
}

bool isPrivateFile(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == ::getuid() &&
         (status.st_mode & othersBits) == 0;
}

FileDescriptor createPrivateFile(const std::string& path) {
  FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file.isOpen()) throw systemFailure(errno);
  return file;
}

void writeAll(int descriptor, ByteView content) {
  while (!content.empty()) {
    const ssize_t written = ::write(descriptor, content.data(), content.size());
    if (written < 0 && errno != EINTR) throw systemFailure(errno);
    // A file that takes nothing and gives no reason would be written to for ever.
    if (written == 0) throw systemFailure(EIO);
    if (written > 0) content = content.subspan(static_cast<std::size_t>(written));
  }
}

void replacePrivateFile(const std::string& path, const std::string& temporary, ByteView content) {
  FileDescriptor file = createPrivateFile(temporary);
  try {
    writeAll(file.get(), content);
    if (file.close() != 0) throw systemFailure(errno);
    if (::rename(temporary.c_str(), path.c_str()) != 0) throw systemFailure(errno);
  } catch (const SystemFailure&) {
    ::unlink(temporary.c_str());
    throw;
  }
}

}  // namespace velotide
