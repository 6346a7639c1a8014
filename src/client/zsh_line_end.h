#pragma once

#include <string>
#include <string_view>

namespace velotide::client {

// Takes out of a command's output what zsh prints behind a last line that has no end, before it tells that
// the command has ended: a sign, and the way to the next line. Works on bytes in any chunks; holds back at
// most `maximumHeld` of them.
class ZshLineEnd {
 public:
  static constexpr std::size_t maximumHeld = 4096;

  std::string filter(std::string_view output);
  // What is left when the command has ended.
  std::string end();

 private:
  std::string held_;
};

}  // namespace velotide::client
