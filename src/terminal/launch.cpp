#include "terminal/launch.h"

#include <algorithm>
#include <new>
#include <string_view>
#include <vector>

#include "protocol/limits.h"
#include "protocol/runtime_failure.h"
#include "terminal/pseudo_terminal.h"

namespace velotide {

namespace {

constexpr std::size_t maximumDirectoryBytes = 1023;
constexpr std::size_t maximumArguments = 256;
constexpr std::size_t maximumEnvironmentEntries = 512;
constexpr std::size_t maximumTextBytes = TerminalRuntimeLimits::maximumFrameBytes / 2;

void require(bool rule) {
  if (!rule) throw Failure(RuntimeFailure::invalidRequest);
}

// The texts that end up in the child's memory, held to a common size.
class TextBudget {
 public:
  void take(std::string_view text) {
    require(text.find('\0') == std::string_view::npos);
    spend(text.size());
  }
  void takeEntry(std::string_view key, std::string_view value) {
    take(key);
    take(value);
    spend(1);
  }

 private:
  void spend(std::size_t count) {
    require(count <= left_);
    left_ -= count;
  }
  std::size_t left_ = maximumTextBytes;
};

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

void validateLaunch(const TerminalRuntimeLaunch& launch) {
  require(launch.executable.starts_with('/'));
  require(launch.directory.starts_with('/') && launch.directory.size() <= maximumDirectoryBytes);
  require(launch.arguments.size() <= maximumArguments);
  require(launch.environment.size() <= maximumEnvironmentEntries);
  require(!launch.executableName || !launch.executableName->empty());
  require(velotide_pty_is_side(launch.columns) && velotide_pty_is_side(launch.rows));

  TextBudget budget;
  budget.take(launch.executable);
  budget.take(launch.directory);
  if (launch.executableName) budget.take(*launch.executableName);
  for (const std::string& argument : launch.arguments) budget.take(argument);
  for (const auto& [key, value] : launch.environment) {
    require(!key.empty() && key.find('=') == std::string::npos);
    budget.takeEntry(key, value);
  }
}

LaunchedChild launchChild(const TerminalRuntimeLaunch& launch,
                          const std::map<std::string, std::string>& environment) {
  LaunchedChild child;
  try {
    std::vector<std::string> arguments = {launch.executableName.value_or(launch.executable)};
    arguments.insert(arguments.end(), launch.arguments.begin(), launch.arguments.end());
    std::vector<std::string> entries;
    for (const auto& [key, value] : environment) entries.push_back(key + "=" + value);
    child.master = velotide_pty_spawn(launch.executable.c_str(), pointersTo(arguments).data(),
                                      pointersTo(entries).data(), launch.directory.c_str(),
                                      static_cast<std::int32_t>(launch.columns),
                                      static_cast<std::int32_t>(launch.rows), &child.pid);
  } catch (const std::bad_alloc&) {
    throw Failure(RuntimeFailure::resourceLimit);
  }
  if (child.master < 0) throw Failure(RuntimeFailure::processLaunchFailed);
  return child;
}

}  // namespace velotide
