#include "bridge/directory_walk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velotide {

bool DirectoryWalk::open() {
  stream_.reset();
  isAround_ = true;
  const int opened = ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (opened < 0) return false;
  stream_.reset(::fdopendir(opened));
  struct stat status {};
  if (!stream_ || ::fstat(opened, &status) != 0) {
    if (!stream_) ::close(opened);
    return false;
  }
  device_ = status.st_dev;
  node_ = status.st_ino;
  return true;
}

bool DirectoryWalk::isCurrent() const {
  struct stat named {};
  return ::lstat(path_.c_str(), &named) == 0 && named.st_dev == device_ && named.st_ino == node_;
}

bool DirectoryWalk::beginTurn(std::size_t entries) {
  const bool isOpen = (stream_ && isCurrent()) || open();
  if (!isOpen) return false;
  remaining_ = entries;
  if (isAround_) ::rewinddir(stream_.get());
  isAround_ = false;
  return true;
}

const char* DirectoryWalk::next() {
  if (remaining_ == 0 || isAround_) return nullptr;
  const dirent* entry = ::readdir(stream_.get());
  isAround_ = entry == nullptr;
  if (isAround_) return nullptr;
  --remaining_;
  return entry->d_name;
}

}  // namespace velotide
