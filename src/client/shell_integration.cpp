#include "client/shell_integration.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <string_view>

namespace velotide::client {

namespace {

std::string_view shellOf(const ShellStart& start) {
  const std::string_view path = start.path;
  return path.substr(path.rfind('/') + 1);
}

bool isLogin(const ShellStart& start) {
  return start.words.front().starts_with('-') ||
         std::any_of(start.words.begin() + 1, start.words.end(),
                     [](const std::string& word) { return word == "-l" || word == "--login"; });
}

std::string escaped(std::string_view text, std::string_view special) {
  std::string result;
  for (const char letter : text) {
    if (special.find(letter) != special.npos) result += '\\';
    result += letter;
  }
  return result;
}

void addArguments(ShellStart& start, const std::vector<std::string>& arguments) {
  start.words.insert(start.words.begin() + 1, arguments.begin(), arguments.end());
}

// The person's own value moves to another name, under which the scripts find it.
void replaceVariable(ShellStart& start, const char* name, const std::string& value, const char* kept) {
  const auto own = start.environment.find(name);
  if (own != start.environment.end())
    start.environment[kept] = own->second;
  else
    start.environment.erase(kept);
  start.environment[name] = value;
}

// In POSIX mode bash drops exported functions whose names are no identifiers, such as foo-bar.
bool hasFunctionsAgainstPosix(const ShellStart& start) {
  const auto isOutsideNames = [](unsigned char letter) { return !std::isalnum(letter) && letter != '_'; };
  return std::any_of(start.environment.begin(), start.environment.end(), [&](const auto& variable) {
    const std::string& name = variable.first;
    return name.starts_with("BASH_FUNC_") && name.ends_with("%%") &&
           std::any_of(name.begin(), name.end() - 2, isOutsideNames);
  });
}

void loadIntoBash(ShellStart& start, const std::string& directory, SystemBash systemBash) {
  if (!isLogin(start)) {
    addArguments(start, {"--rcfile", directory + "/load.bash"});
  } else if ((systemBash == SystemBash::old && start.path == "/bin/bash") ||
             hasFunctionsAgainstPosix(start)) {
    start.environment["VELOTIDE_BASH_INTEGRATION"] = directory + "/velotide.bash";
    const bool hasHooks = start.environment.contains("PROMPT_COMMAND");
    std::string& hooks = start.environment["PROMPT_COMMAND"];
    if (hasHooks) hooks += '\n';
    hooks += R"(. "$VELOTIDE_BASH_INTEGRATION"; eval "${__velotide_last_hooks-}")";
  } else {
    addArguments(start, {"--posix"});
    // bash expands the value.
    replaceVariable(start, "ENV", escaped(directory + "/load.bash", "$`\\"), "VELOTIDE_USER_ENV");
  }
}

}  // namespace

bool takesShellIntegration(const ShellStart& start) {
  const std::string_view shell = shellOf(start);
  if (shell != "bash" && shell != "zsh" && shell != "fish") return false;
  if (shell == "bash" && start.environment.contains("POSIXLY_CORRECT")) return false;
  return std::all_of(start.words.begin() + 1, start.words.end(), [](const std::string& word) {
    return word == "-i" || word == "-l" || word == "--login" || word == "--interactive";
  });
}

ShellStart withShellIntegration(ShellStart start, const std::string& directory, SystemBash systemBash) {
  const std::string_view shell = shellOf(start);
  if (shell == "bash")
    loadIntoBash(start, directory, systemBash);
  else if (shell == "zsh")
    replaceVariable(start, "ZDOTDIR", directory + "/zsh", "VELOTIDE_USER_ZDOTDIR");
  else
    addArguments(start, {"--init-command", "source '" + escaped(directory, "'\\") + "/velotide.fish'"});
  return start;
}

std::string shellIntegrationDirectory(const std::string& program) {
  const char* named = std::getenv("VELOTIDE_SHELL_INTEGRATION");
  const std::string beside =
      program.substr(0, program.rfind('/') + 1) + "../share/velotide/shell-integration";
  for (const std::string& candidate : {beside, std::string(named ? named : "")}) {
    char resolved[PATH_MAX];
    if (!candidate.empty() && ::realpath(candidate.c_str(), resolved) &&
        ::access((resolved + std::string("/velotide.bash")).c_str(), R_OK) == 0)
      return resolved;
  }
  return {};
}

}  // namespace velotide::client
