#include "base/zeroed_region.h"

#include <errno.h>
#include <sys/mman.h>

#include "base/failure.h"
#include "base/platform.h"

namespace velotide {

ZeroedRegion::ZeroedRegion(std::size_t size) {
  void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw systemFailure(errno);
  platform::keepFromChildren(memory, size);
  bytes_ = {static_cast<std::uint8_t*>(memory), size};
}

ZeroedRegion::~ZeroedRegion() { munmap(bytes_.data(), bytes_.size()); }

}  // namespace velotide
