#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Texts that the scanners are measured on.
namespace velotide {

struct NamedText {
  std::string name;
  std::string text;
};

// Terminal output, from ordinary to the worst that a program can print; each of about `size` bytes.
std::vector<NamedText> outputStreams(std::size_t size);

// What a command may have printed: real shapes of logs, and lines made to slow the patterns down. Each fills
// the window of captured output.
std::vector<NamedText> commandOutputs();

}  // namespace velotide
