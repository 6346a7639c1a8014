#include "client/shell_words.h"

#include <algorithm>
#include <cctype>

namespace velotide::client {

namespace {

bool isPlain(std::string_view word) {
  constexpr std::string_view harmless = "_@+:,./-";
  return !word.empty() && std::all_of(word.begin(), word.end(), [&](unsigned char letter) {
    return std::isalnum(letter) != 0 || harmless.find(static_cast<char>(letter)) != std::string_view::npos;
  });
}

std::string quoteWord(std::string_view word, bool isFish) {
  if (isPlain(word)) return std::string(word);
  std::string quoted = "'";
  for (const char letter : word) {
    // Between single quotes fish takes a backslash for more than itself, so both stand outside.
    if (letter == '\'' || letter == '\\') {
      quoted += "'\\";
      quoted += letter;
      quoted += '\'';
    } else if (letter == '\t' && isFish) {
      // Which drops tabs from pasted text.
      quoted += "'\\t'";
    } else {
      quoted += letter;
    }
  }
  return quoted + "'";
}

}  // namespace

std::string shellText(const std::vector<std::string>& command, std::string_view shell) {
  if (command.size() == 1) return command.front();
  std::string text;
  for (const std::string& word : command)
    text += (text.empty() ? "" : " ") + quoteWord(word, shell == "fish");
  return text;
}

std::string asOneCommand(std::string_view text, std::string_view shell) {
  const bool isFish = shell == "fish";
  return (isFish ? "begin\n" : "{\n") + std::string(text) + (isFish ? "\nend" : "\n}");
}

}  // namespace velotide::client
