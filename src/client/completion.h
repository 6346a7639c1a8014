#pragma once

#include <array>
#include <string>

namespace CLI {
class App;
}

namespace velotide::client {

inline constexpr std::array completedShells{"bash", "zsh", "fish"};

// Prints the completions of `app`, the whole command line, for one of those shells.
int printCompletion(const std::string& shell, CLI::App& app);

}  // namespace velotide::client
