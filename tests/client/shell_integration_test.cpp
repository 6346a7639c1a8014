#include "client/shell_integration.h"

#include <gtest/gtest.h>

namespace velotide::client {

namespace {

std::string shown(const ShellStart& start) {
  std::string text;
  for (const std::string& word : start.words) text += word + "|";
  for (const auto& [name, value] : start.environment) text += name + "=" + value + "|";
  return text;
}

struct Case {
  ShellStart start;
  std::string changed;
  std::string directory = "/scripts";
  SystemBash systemBash = SystemBash::current;
};

TEST(ShellIntegration, AddsWhatTheShellNeedsAndKeepsTheRest) {
  const std::string hook = R"(. "$VELOTIDE_BASH_INTEGRATION"; eval "${__velotide_last_hooks-}")"
                           "|VELOTIDE_BASH_INTEGRATION=/scripts/velotide.bash|";
  const std::string load = "ENV=/scripts/load.bash|";
  const SystemBash old = SystemBash::old;
  for (const Case& row : {
           Case{{"/bin/bash", {"bash", "-i"}, {{"ENV", "e"}}}, "bash|--rcfile|/scripts/load.bash|-i|ENV=e|"},
           {{"/bin/bash", {"bash", "--login"}, {{"ENV", "e"}}},
            "bash|--posix|--login|" + load + "VELOTIDE_USER_ENV=e|"},
           {{"/bin/bash", {"bash", "-l"}, {}},
            R"(bash|--posix|-l|ENV=/a\$b\`c\\d 'e'/load.bash|)",
            R"(/a$b`c\d 'e')"},
           {{"/bin/bash", {"bash"}, {}}, "bash|--rcfile|/scripts/load.bash|", "/scripts", old},
           {{"/bin/bash", {"-bash"}, {{"PROMPT_COMMAND", "p"}}},
            "-bash|PROMPT_COMMAND=p\n" + hook,
            "/scripts",
            old},
           {{"/bin/bash", {"-bash"}, {}}, "-bash|PROMPT_COMMAND=" + hook, "/scripts", old},
           {{"/opt/bash", {"-bash"}, {{"VELOTIDE_USER_ENV", "left"}}},
            "-bash|--posix|" + load,
            "/scripts",
            old},
           {{"/bin/bash", {"-bash"}, {{"BASH_FUNC_a_1%%", "f"}}}, "-bash|--posix|BASH_FUNC_a_1%%=f|" + load},
           {{"/bin/bash", {"-bash"}, {{"BASH_FUNC_a-1%%", "f"}}},
            "-bash|BASH_FUNC_a-1%%=f|PROMPT_COMMAND=" + hook},
           {{"/bin/zsh", {"zsh"}, {{"ZDOTDIR", "/d"}}}, "zsh|VELOTIDE_USER_ZDOTDIR=/d|ZDOTDIR=/scripts/zsh|"},
           {{"/bin/fish", {"fish", "-i"}, {}},
            R"(fish|--init-command|source '/a\'b\\c/velotide.fish'|-i|)",
            R"(/a'b\c)"},
       }) {
    EXPECT_TRUE(takesShellIntegration(row.start)) << shown(row.start);
    const ShellStart changed = withShellIntegration(row.start, row.directory, row.systemBash);
    EXPECT_EQ(changed.path, row.start.path);
    EXPECT_EQ(shown(changed), row.changed);
  }
}

TEST(ShellIntegration, LeavesAloneWhatSaysWhatItWants) {
  for (const ShellStart& start : std::vector<ShellStart>{{"/bin/bash", {"bash", "-c", "true"}, {}},
                                                         {"/bin/bash", {"bash", "script"}, {}},
                                                         {"/bin/bash", {"bash", "--norc"}, {}},
                                                         {"/bin/bash", {"bash"}, {{"POSIXLY_CORRECT", ""}}},
                                                         {"/bin/zsh", {"zsh", "-f"}, {}},
                                                         {"/bin/fish", {"fish", "-N"}, {}},
                                                         {"/bin/sh", {"sh"}, {}},
                                                         {"/bin/bash/tool", {"bash"}, {}}})
    EXPECT_FALSE(takesShellIntegration(start)) << start.path << shown(start);
  EXPECT_TRUE(takesShellIntegration({"/bin/zsh", {"zsh"}, {{"POSIXLY_CORRECT", ""}}}));
}

}  // namespace

}  // namespace velotide::client
