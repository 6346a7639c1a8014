#include "client/command_words.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>

namespace velotide::client {

namespace {

// These take words behind "--" that are not this program's; to the others they are arguments.
constexpr std::array commandsWithRest{"new", "run", "restart", "exec", "send"};

// The parser takes a word for an option by its beginning, for a list to split by the brackets at both ends,
// and for the value of an option that has an empty one. A NUL keeps it from that; no word of a command line
// holds one by itself.
void shield(std::string& word, bool isArgument) {
  if (isArgument && word.starts_with('-')) word.insert(0, 1, '\0');
  if (word.ends_with(']') || (word.starts_with("--") && word.ends_with('='))) word += '\0';
}

// The first word that is neither a general option nor the value of one; empty when there is none.
std::string commandAmong(const std::vector<std::string>& words) {
  for (std::size_t index = 0; index < words.size(); ++index) {
    if (words[index] == "--root")
      ++index;
    else if (!words[index].starts_with('-'))
      return words[index];
  }
  return "";
}

}  // namespace

CommandWords commandWords(std::vector<std::string> words) {
  CommandWords taken{std::move(words), {}, {}};
  taken.named = commandAmong(taken.own);
  auto behind = std::ranges::find(taken.own, "--");
  if (behind != taken.own.end()) {
    if (std::ranges::find(commandsWithRest, taken.named) != commandsWithRest.end()) {
      taken.rest.emplace(behind + 1, taken.own.end());
      behind = taken.own.erase(behind, taken.own.end());
    } else {
      behind = taken.own.erase(behind);
    }
  }
  for (auto word = taken.own.begin(); word != taken.own.end(); ++word) shield(*word, word >= behind);
  return taken;
}

std::string asTyped(std::string word) {
  std::erase(word, '\0');
  return word;
}

void takeAsTyped(CLI::App& app) {
  for (CLI::Option* option : app.get_options()) option->transform(asTyped, "");
  for (CLI::App* command : app.get_subcommands({})) takeAsTyped(*command);
}

}  // namespace velotide::client
