#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "client/wait_commands.h"

namespace velotide::client {

// The commands `wait`, `call` and `exec` as declared to the parser. Must outlive it.
class WaitCommandLine {
 public:
  using Action = std::function<int(Service&)>;
  // Declares a command that does `action`.
  using Add = std::function<CLI::App*(const char* name, const char* description, Action action)>;

  void addTo(const Add& add);

  WaitOptions wait;
  CallOptions call;
  ExecOptions exec;

 private:
  void addWait(const Add& add);
  void addCall(const Add& add);
  void addExec(const Add& add);
};

}  // namespace velotide::client
