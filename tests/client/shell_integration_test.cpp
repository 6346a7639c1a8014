#include "client/shell_integration.h"

#include <gtest/gtest.h>

#include <sstream>

namespace velotide::client {

namespace {

using Words = std::vector<std::string>;

// Words, and variables with their values, are written with "|" between them.
Words split(const std::string& text) {
  Words words;
  std::istringstream rest(text);
  for (std::string word; std::getline(rest, word, '|');) words.push_back(word);
  return words;
}
std::map<std::string, std::string> variables(const std::string& text) {
  std::map<std::string, std::string> found;
  for (const std::string& each : split(text)) {
    const std::size_t sign = each.find('=');
    found[each.substr(0, sign)] = each.substr(sign + 1);
  }
  return found;
}

struct Case {
  std::string path, words, environment, changedWords, changedEnvironment;
  std::string directory = "/scripts";
  SystemBash systemBash = SystemBash::current;
};

TEST(ShellIntegration, AddsWhatTheShellNeedsAndKeepsTheRest) {
  const std::string script = "VELOTIDE_BASH_INTEGRATION=/scripts/velotide.bash";
  const std::string hook = R"(. "$VELOTIDE_BASH_INTEGRATION"; eval "${__velotide_last_hooks-}")";
  const std::string load = "ENV=/scripts/load.bash";
  const SystemBash old = SystemBash::old;
  for (const Case& row : {
           Case{"/usr/bin/bash", "bash|-i", "ENV=e", "bash|--rcfile|/scripts/load.bash|-i", "ENV=e"},
           {"/bin/bash", "-bash", "", "-bash|--posix", load},
           {"/bin/bash", "bash|-l", "ENV=mine", "bash|--posix|-l", load + "|VELOTIDE_USER_ENV=mine"},
           {"/bin/bash", "bash|--login", "", "bash|--posix|--login", R"(ENV=/a\$b\`c\\d 'e'/load.bash)",
            R"(/a$b`c\d 'e')"},
           {"/bin/bash", "bash", "", "bash|--rcfile|/scripts/load.bash", "", "/scripts", old},
           {"/bin/bash", "-bash", "PROMPT_COMMAND=mine", "-bash",
            "PROMPT_COMMAND=mine\n" + hook + "|" + script, "/scripts", old},
           {"/bin/bash", "-bash", "", "-bash", "PROMPT_COMMAND=" + hook + "|" + script, "/scripts", old},
           {"/opt/bin/bash", "-bash", "", "-bash|--posix", load, "/scripts", old},
           {"/bin/zsh", "-zsh", "A=b", "-zsh", "A=b|ZDOTDIR=/scripts/zsh"},
           {"/bin/zsh", "zsh|-l", "ZDOTDIR=/dots", "zsh|-l",
            "VELOTIDE_USER_ZDOTDIR=/dots|ZDOTDIR=/scripts/zsh"},
           {"/usr/bin/fish", "fish|--interactive", "",
            R"(fish|--init-command|source '/a\'b\\c/velotide.fish'|--interactive)", "", R"(/a'b\c)"},
       }) {
    SCOPED_TRACE(row.path + " " + row.words + " " + row.environment);
    const ShellStart start{row.path, split(row.words), variables(row.environment)};
    ASSERT_TRUE(takesShellIntegration(start));
    const ShellStart changed = withShellIntegration(start, row.directory, row.systemBash);
    EXPECT_EQ(changed.path, row.path);
    EXPECT_EQ(changed.words, split(row.changedWords));
    EXPECT_EQ(changed.environment, variables(row.changedEnvironment));
  }
}

TEST(ShellIntegration, LeavesAloneWhatSaysWhatItWants) {
  for (const ShellStart& start : std::vector<ShellStart>{
           {"/bin/bash", {"bash", "-c", "true"}, {}},
           {"/bin/bash", {"bash", "script"}, {}},
           {"/bin/bash", {"bash", "--norc"}, {}},
           {"/bin/bash", {"bash"}, {{"POSIXLY_CORRECT", ""}}},
           {"/bin/zsh", {"zsh", "-f"}, {}},
           {"/bin/fish", {"fish", "-N"}, {}},
           {"/bin/sh", {"sh"}, {}},
           {"/bin/bash/tool", {"bash"}, {}},
       })
    EXPECT_FALSE(takesShellIntegration(start)) << start.path << " " << start.words.back();
  EXPECT_TRUE(takesShellIntegration({"/bin/zsh", {"zsh"}, {{"POSIXLY_CORRECT", ""}}}));
}

}  // namespace

}  // namespace velotide::client
