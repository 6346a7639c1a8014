#include <limits.h>
#include <stdlib.h>

#include <array>
#include <charconv>
#include <iostream>
#include <stdexcept>

#include "end_to_end/platform.h"
#include "end_to_end/waiting.h"
#include "soak/child.h"
#include "soak/soak.h"

namespace velotide::bench {
namespace {

constexpr const char* help =
    R"(velotide-soak [SECONDS [RUNTIME]]: loads a service with all it serves, at once, and checks all of it.

Runs for 60 seconds unless told, on a service of its own in a private directory; RUNTIME is
build/bin/velotide-runtime unless told. Progress goes to standard error every ten seconds. Ends with 0 only when
every byte was right, and the service held no more at the end than when it was warm, and left nobody behind.
)";

int soak(const std::vector<std::string>& arguments) {
  std::array<char, PATH_MAX> path;
  const auto absolute = [&](const std::string& name) -> std::string {
    if (::realpath(name.c_str(), path.data()) == nullptr) failWithErrno(name);
    return path.data();
  };
  int length = 60;
  if (arguments.size() > 1) {
    const std::string& text = arguments[1];
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    if (error != std::errc() || *end != '\0' || length < 3)
      throw std::runtime_error("not a usable time: " + text);
  }
  adoptOrphans();
  // Whatever hangs must not hang for ever.
  endOnSignalsOrAfter(std::chrono::seconds(length + 300));
  Soak run(std::chrono::seconds(length), absolute(arguments[0]),
           absolute(arguments.size() > 2 ? arguments[2] : "build/bin/velotide-runtime"));
  try {
    run.run();
  } catch (...) {
    run.printSummary();
    throw;
  }
  run.printSummary();
  std::cout << "soak passed\n";
  return 0;
}

}  // namespace
}  // namespace velotide::bench

int main(int count, char** arguments) {
  using namespace velotide::bench;
  const std::vector<std::string> all(arguments, arguments + count);
  try {
    if (all.size() > 1 && all[1] == childOption) return runChild(all);
    if (all.size() > 1 && all[1] == "--help") return std::cout << help, 0;
    return soak(all);
  } catch (const std::exception& failure) {
    std::cerr << "velotide-soak: " << failure.what() << "\n";
    return 1;
  }
}
