#pragma once

#include <map>
#include <string>
#include <vector>

// Starting a shell so that it tells the session which commands run in it.
namespace velotide::client {

// A program about to be started.
struct ShellStart {
  // Of the program's file; its last component tells which shell it is.
  std::string path;
  // The program's name, which for a login shell may begin with "-", and its arguments.
  std::vector<std::string> words;
  std::map<std::string, std::string> environment;
};

// Whether it is a shell whose commands can be told, started in a way that lets the integration in: arguments
// other than those that ask for an interactive or a login shell say what is wanted already.
bool takesShellIntegration(const ShellStart& start);

// What /bin/bash is: the version the integration is made for, or the 3.2 of macOS, whose login shell is not
// relied upon to read what its environment names.
enum class SystemBash { current, old };

// The same start with the integration's scripts in `directory` (absolute) loaded, for one that takes them. No
// file is changed; what is added to the environment is gone before the shell's first prompt.
ShellStart withShellIntegration(ShellStart start, const std::string& directory, SystemBash systemBash);

// Where the scripts lie: beside the folder of the executable `program`, else where the environment variable
// VELOTIDE_SHELL_INTEGRATION says. Absolute; empty when there are none.
std::string shellIntegrationDirectory(const std::string& program);

}  // namespace velotide::client
