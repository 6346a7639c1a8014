#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace velotide::client {

// Help as the parser writes it, with the words of a program, which the parser leaves over, in the line of
// usage.
class HelpFormatter : public CLI::Formatter {
  std::string make_usage(const CLI::App* app, std::string name) const override;
};

}  // namespace velotide::client
