#pragma once

#include <string>
#include <vector>

namespace velotide::client {

// What shells complete of one command.
struct CompletedCommand {
  std::string name;
  std::string description;
  std::vector<std::string> options;
  // Words that are no options: sessions, or the words of another command line.
  bool takesSessions = false;
  bool takesProgram = false;
};

// Prints the completions for "bash", "zsh" or "fish".
int printCompletion(const std::string& shell, const std::vector<CompletedCommand>& commands);

}  // namespace velotide::client
