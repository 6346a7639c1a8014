#pragma once

#include <string>

namespace velotide::client {

// Where a command line's first word leads, as a shell would find it.
struct FoundProgram {
  // Absolute; empty when there is none.
  std::string path;
  // Something of that name is there, but it cannot be executed.
  bool isForbidden = false;
};

FoundProgram findProgram(const std::string& name);

}  // namespace velotide::client
