#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

// What an instrumented shell says of itself by the marks it prints.
namespace velotide {

struct TerminalShellCommandStarted {
  std::string text;  // may be empty
  bool operator==(const TerminalShellCommandStarted&) const = default;
};

struct TerminalShellCommandFinished {
  std::int32_t exitCode = 0;
  bool operator==(const TerminalShellCommandFinished&) const = default;
};

struct TerminalShellDetected {
  std::string name;
  bool operator==(const TerminalShellDetected&) const = default;
};

// Where commands run; a field the shell left out or spelled badly is absent.
struct TerminalShellReportedContext {
  std::optional<std::string> workingDirectory;
  std::optional<std::string> user;
  std::optional<std::int64_t> uid;
  std::optional<std::string> host;
  std::optional<std::string> shell;

  bool isEmpty() const { return *this == TerminalShellReportedContext{}; }
  bool operator==(const TerminalShellReportedContext&) const = default;
};

using TerminalShellIntegrationEvent = std::variant<TerminalShellCommandStarted, TerminalShellCommandFinished,
                                                   TerminalShellDetected, TerminalShellReportedContext>;

// Reads what stands between a mark's prefix and its terminator; nothing unless it is well-formed.
std::optional<TerminalShellIntegrationEvent> parseShellIntegrationPayload(std::string_view payload);

}  // namespace velotide
