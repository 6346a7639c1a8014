#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velotide::client {

// What to type for the command of a person into the shell of that name: one word is the shell's own text,
// several are quoted, as bash, zsh and fish alike read them, so that each arrives at the program as it is.
std::string shellText(const std::vector<std::string>& command, std::string_view shell);

// The same where it has several lines, made one command of the shell of that name.
std::string asOneCommand(std::string_view text, std::string_view shell);

}  // namespace velotide::client
