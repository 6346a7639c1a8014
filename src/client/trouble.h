#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace velotide::client {

// What `velotide` exits with when it is not the status of the program it ran.
namespace ExitStatus {
inline constexpr int success = 0;
inline constexpr int failure = 1;
inline constexpr int usage = 2;
inline constexpr int notRunning = 3;
// Commands that pass on a program's status keep their own failures apart from it, as shells and container
// tools do.
inline constexpr int ownFailure = 125;
inline constexpr int cannotExecute = 126;
inline constexpr int notFound = 127;
inline constexpr int signalBase = 128;
}  // namespace ExitStatus

// Why a command could not do what it was asked: sentences for a person, the last of which says what to do.
struct Trouble : std::runtime_error {
  explicit Trouble(const std::string& message, int exitStatus = ExitStatus::failure)
      : std::runtime_error(message), status(exitStatus) {}

  int status;
};

// The sentences for an error word of the service.
std::string explain(std::string_view word);

}  // namespace velotide::client
