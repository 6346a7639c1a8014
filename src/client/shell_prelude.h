#pragma once

#include <cstddef>
#include <string_view>

namespace velotide::client {

struct ShellPrelude {
  std::size_t length = 0;
  // Whether more of it may follow the output's end.
  bool mayContinue = false;

  bool operator==(const ShellPrelude&) const = default;
};

// How much of `output`, which follows the start mark of a command of `shell`, is what the shell itself prints
// between that mark and running the command: fish ends bracketed paste there, sets the title and resets
// colours.
ShellPrelude shellPrelude(std::string_view shell, std::string_view output);

}  // namespace velotide::client
