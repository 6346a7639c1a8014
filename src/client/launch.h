#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/uuid.h"
#include "client/notices.h"
#include "protocol/session_records.h"

namespace velotide::client {

// What a person asks to be started.
struct LaunchWish {
  enum class Streams {
    // A terminal as the person knows it.
    terminal,
    // For data from and to pipes: the terminal neither echoes nor translates.
    plain,
    // The same, with keys that stop and continue its output.
    plainStoppable,
  };

  Uuid sessionID;
  // Empty: the person's shell.
  std::vector<std::string> command;
  // Start the shell as a login shell.
  bool isLogin = false;
  // Empty: the current one.
  std::string directory;
  std::string root;
  std::int64_t columns = TerminalRuntimeLimits::defaultColumns;
  std::int64_t rows = TerminalRuntimeLimits::defaultRows;
  Streams streams = Streams::terminal;
  // Let a shell tell which commands run in it.
  bool loadsShellIntegration = true;
};

// The launch description for it: the person's environment without what describes the outer terminal, and the
// person's file mask (the service's own lets nobody else read what its children create), set by a small shell
// that replaces itself by the program. Throws Trouble; for a command that cannot be found or executed with
// ExitStatus::notFound or cannotExecute. Tells by one notice that a shell's integration is missing.
TerminalRuntimeLaunch composeLaunch(const LaunchWish& wish, const Notices& notices);

// The sessions in which this process runs, innermost first.
std::vector<Uuid> surroundingSessions();

}  // namespace velotide::client
