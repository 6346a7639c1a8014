#pragma once

#include <unistd.h>

#include <utility>

namespace velotide {

// An open descriptor and the duty to close it.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    other.close();
    return *this;
  }
  ~FileDescriptor() { close(); }

  // Negative when nothing is open.
  int get() const { return descriptor_; }
  bool isOpen() const { return descriptor_ >= 0; }

  // Gives the descriptor and the duty away.
  int release() { return std::exchange(descriptor_, -1); }

  // 0, or -1 with errno; nothing is open afterwards either way.
  int close() {
    if (!isOpen()) return 0;
    return ::close(std::exchange(descriptor_, -1));
  }

 private:
  int descriptor_ = -1;
};

}  // namespace velotide
