#include "client/help_formatter.h"

#include <utility>

namespace velotide::client {

std::string HelpFormatter::make_usage(const CLI::App* app, std::string name) const {
  std::string usage = CLI::Formatter::make_usage(app, std::move(name));
  const auto add = [&](const char* words) { usage.insert(usage.size() - 1, words); };
  if (app->get_name() == "restart") add(" SESSION");
  if (app->get_name() == "run")
    add(" [--] COMMAND...");
  else if (app->get_prefix_command())
    add(" [--] [COMMAND...]");
  if (app->get_name() == "exec") add(" -- COMMAND...");
  return usage;
}

}  // namespace velotide::client
