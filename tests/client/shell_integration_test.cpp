#include "client/shell_integration.h"

#include <gtest/gtest.h>

namespace velotide::client {

namespace {

using Words = std::vector<std::string>;
using Variables = std::map<std::string, std::string>;

struct Case {
  const char* name;
  std::string path;
  Words words;
  Variables environment;
  Words changedWords;
  Variables changedEnvironment;
  std::string directory = "/scripts";
  SystemBash systemBash = SystemBash::current;
};

class Loading : public testing::TestWithParam<Case> {};

TEST_P(Loading, AddsWhatTheShellNeedsAndKeepsTheRest) {
  const Case& row = GetParam();
  const ShellStart start{row.path, row.words, row.environment};
  ASSERT_TRUE(takesShellIntegration(start));
  const ShellStart changed = withShellIntegration(start, row.directory, row.systemBash);
  EXPECT_EQ(changed.path, row.path);
  EXPECT_EQ(changed.words, row.changedWords);
  EXPECT_EQ(changed.environment, row.changedEnvironment);
}

const std::string hook = R"(. "$VELOTIDE_BASH_INTEGRATION"; eval "${__velotide_last_hooks-}")";
const std::string bashScript = "/scripts/velotide.bash";

INSTANTIATE_TEST_SUITE_P(
    Shells, Loading,
    testing::Values(
        Case{"Bash",
             "/usr/bin/bash",
             {"bash", "-i"},
             {{"ENV", "e"}},
             {"bash", "--rcfile", "/scripts/load.bash", "-i"},
             {{"ENV", "e"}}},
        Case{"BashLoginByName",
             "/bin/bash",
             {"-bash"},
             {},
             {"-bash", "--posix"},
             {{"ENV", "/scripts/load.bash"}}},
        Case{"BashLoginByFlag",
             "/bin/bash",
             {"bash", "-l"},
             {{"ENV", "mine"}},
             {"bash", "--posix", "-l"},
             {{"ENV", "/scripts/load.bash"}, {"VELOTIDE_USER_ENV", "mine"}}},
        Case{"BashExpandsEnv",
             "/bin/bash",
             {"bash", "--login"},
             {},
             {"bash", "--posix", "--login"},
             {{"ENV", R"(/a\$b\`c\\d 'e'/load.bash)"}},
             R"(/a$b`c\d 'e')"},
        Case{"OldBash",
             "/bin/bash",
             {"bash"},
             {},
             {"bash", "--rcfile", "/scripts/load.bash"},
             {},
             "/scripts",
             SystemBash::old},
        Case{"OldBashLogin",
             "/bin/bash",
             {"-bash"},
             {{"PROMPT_COMMAND", "mine"}},
             {"-bash"},
             {{"PROMPT_COMMAND", "mine\n" + hook}, {"VELOTIDE_BASH_INTEGRATION", bashScript}},
             "/scripts",
             SystemBash::old},
        Case{"OldBashLoginBare",
             "/bin/bash",
             {"-bash"},
             {},
             {"-bash"},
             {{"PROMPT_COMMAND", hook}, {"VELOTIDE_BASH_INTEGRATION", bashScript}},
             "/scripts",
             SystemBash::old},
        Case{"OtherBashBesideOldOne",
             "/opt/bin/bash",
             {"-bash"},
             {},
             {"-bash", "--posix"},
             {{"ENV", "/scripts/load.bash"}},
             "/scripts",
             SystemBash::old},
        Case{"Zsh", "/bin/zsh", {"-zsh"}, {{"A", "b"}}, {"-zsh"}, {{"A", "b"}, {"ZDOTDIR", "/scripts/zsh"}}},
        Case{"ZshMoved",
             "/bin/zsh",
             {"zsh", "-l"},
             {{"ZDOTDIR", "/dots"}},
             {"zsh", "-l"},
             {{"VELOTIDE_USER_ZDOTDIR", "/dots"}, {"ZDOTDIR", "/scripts/zsh"}}},
        Case{"Fish",
             "/usr/bin/fish",
             {"fish", "--interactive"},
             {},
             {"fish", "--init-command", R"(source '/a\'b\\c/velotide.fish')", "--interactive"},
             {},
             R"(/a'b\c)"}),
    [](const auto& tested) { return tested.param.name; });

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
