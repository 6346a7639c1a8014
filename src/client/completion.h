#pragma once

#include <string>

namespace velotide::client {

// Prints the completions for "bash", "zsh" or "fish".
int printCompletion(const std::string& shell);

}  // namespace velotide::client
