#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace velotide::client {

// The words of a command line, made ready for its parser.
struct CommandWords {
  std::vector<std::string> own;
  // What stands behind the first "--", for a command that takes words which are not this program's.
  std::optional<std::vector<std::string>> rest;
  // The word that names a command, or nothing.
  std::string named;
};

CommandWords commandWords(std::vector<std::string> words);

// A word that came through the parser, as it was typed.
std::string asTyped(std::string word);
// Makes the parser hand on the values of all options as they were typed.
void takeAsTyped(CLI::App& app);

}  // namespace velotide::client
