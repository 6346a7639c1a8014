#pragma once

#include <string>
#include <string_view>

namespace velotide::client {

// Turns data from a pipe into keys for a terminal that gathers lines, such that the program reads exactly
// this data: control characters are quoted, lines longer than a terminal gathers are handed over in parts,
// and the end is the terminal's end of file.
class PlainInput {
 public:
  std::string encode(std::string_view data);
  std::string end() const;

  static constexpr char interrupt = '\x03';
  static constexpr char quit = '\x1c';
  // Stop and go on printing.
  static constexpr char stop = '\x13';
  static constexpr char resume = '\x11';

 private:
  // Less than any terminal gathers (1024 on some systems, quoting not counted).
  static constexpr std::size_t longestPart = 1000;

  // Since the last line end or part.
  std::size_t gathered_ = 0;
};

}  // namespace velotide::client
