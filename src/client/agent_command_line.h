#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "client/commands.h"

namespace velotide::client {

// The commands `agents`, `attention`, `ack`, `events` and `agent` as declared to the parser. Must outlive it.
class AgentCommandLine {
 public:
  using Action = std::function<int(Service&)>;
  // Declares a command that does `action`.
  using Add = std::function<CLI::App*(const char* name, const char* description, Action action)>;

  void addTo(const Add& add, CLI::App& app);

  // What `agent` was told to do, which needs no service to be named; empty for every other command.
  std::function<int()> inSession;

 private:
  void addAttention(const Add& add);
  void addEvents(const Add& add);
  void addAgent(CLI::App& app);

  AttentionOptions attention_;
  AcknowledgeOptions acknowledge_;
  EventOptions events_;
  AgentReportOptions report_;
  std::string kind_;
  std::string payload_;
  bool listsAsJson_ = false;
};

}  // namespace velotide::client
