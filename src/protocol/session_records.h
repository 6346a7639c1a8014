#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agents/agent_snapshot.h"
#include "base/time.h"
#include "base/uuid.h"
#include "commands/command_info.h"
#include "commands/reminder_policy.h"
#include "protocol/limits.h"

namespace velotide {

// How to start a session's child. The environment is the child's whole one but for what the service adds.
struct TerminalRuntimeLaunch {
  std::string executable;
  std::vector<std::string> arguments;
  // The child's argument zero; the executable's path when absent.
  std::optional<std::string> executableName;
  std::map<std::string, std::string> environment;
  std::string directory;
  std::int64_t columns = TerminalRuntimeLimits::defaultColumns;
  std::int64_t rows = TerminalRuntimeLimits::defaultRows;
  std::optional<TerminalReminderPolicy> reminderPolicy;

  bool operator==(const TerminalRuntimeLaunch&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("executable", self.executable);
    visit("arguments", self.arguments);
    visit("executableName", self.executableName);
    visit("environment", self.environment);
    visit("directory", self.directory);
    visit("columns", self.columns);
    visit("rows", self.rows);
    visit("reminderPolicy", self.reminderPolicy);
  }
};

// A session as clients see it.
struct TerminalRuntimeSessionInfo {
  Uuid id;
  // Grows with everything a client may want to notice.
  std::uint64_t revision = 0;
  std::int32_t pid = 0;
  // Identity of the output stream; a restart begins a new one.
  Uuid generation;
  Uuid controlEpoch;
  std::string directory;
  bool running = false;
  std::optional<std::int32_t> exitStatus;
  std::int64_t columns = 0;
  std::int64_t rows = 0;
  std::uint64_t outputOffset = 0;
  std::optional<std::string> controlOwner;
  std::uint64_t nextInputSequence = 0;
  std::optional<TerminalAgentSnapshot> agent;
  std::optional<Date> controlExpiresAt;
  // Grows by one with every chunk of output.
  std::optional<std::int64_t> outputRevision;
  std::optional<std::vector<TerminalRuntimeCommandInfo>> commands;
  std::optional<TerminalReminderPolicy> reminderPolicy;

  bool operator==(const TerminalRuntimeSessionInfo&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("id", self.id);
    visit("revision", self.revision);
    visit("pid", self.pid);
    visit("generation", self.generation);
    visit("controlEpoch", self.controlEpoch);
    visit("directory", self.directory);
    visit("running", self.running);
    visit("exitStatus", self.exitStatus);
    visit("columns", self.columns);
    visit("rows", self.rows);
    visit("outputOffset", self.outputOffset);
    visit("controlOwner", self.controlOwner);
    visit("nextInputSequence", self.nextInputSequence);
    visit("agent", self.agent);
    visit("controlExpiresAt", self.controlExpiresAt);
    visit("outputRevision", self.outputRevision);
    visit("commands", self.commands);
    visit("reminderPolicy", self.reminderPolicy);
  }
};

}  // namespace velotide
