#include "bridge/directory_walk.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/platform.h"

namespace velotide {

namespace {

bool isSame(const timespec& left, const timespec& right) {
  return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

}  // namespace

bool DirectoryWalk::open(struct stat& status) {
  stream_.reset();
  isAround_ = true;
  const int opened = ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (opened < 0) return false;
  stream_.reset(::fdopendir(opened));
  if (!stream_ || ::fstat(opened, &status) != 0) {
    if (!stream_) ::close(opened);
    return false;
  }
  device_ = status.st_dev;
  node_ = status.st_ino;
  changedAt_ = {};
  return true;
}

bool DirectoryWalk::isCurrent(struct stat& status) const {
  return stream_ && ::lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ &&
         status.st_ino == node_;
}

bool DirectoryWalk::beginTurn(std::size_t entries, Look look) {
  struct stat status {};
  if (!isCurrent(status) && !open(status)) return false;
  remaining_ = entries;
  if (!isAround_) return true;
  const timespec changedAt = platform::changeTime(status);
  if (look == Look::whenChanged && isSame(changedAt, changedAt_)) return false;
  changedAt_ = changedAt;
  ::rewinddir(stream_.get());
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
