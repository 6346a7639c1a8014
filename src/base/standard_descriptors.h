#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace velotide {

// Opens /dev/null, in the `mode` of open(2), wherever a standard descriptor is closed: a socket or file that
// took its number would get what is meant for that.
inline void fillStandardDescriptors(int mode) {
  int descriptor;
  do {
    descriptor = ::open("/dev/null", mode | O_NOCTTY);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor >= 0) ::close(descriptor);
}

}  // namespace velotide
