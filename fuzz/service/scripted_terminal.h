#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "base/file_descriptor.h"

namespace velotide {

// A program that the fuzz target plays on a terminal of its own: a pair of sockets, one of which the service
// holds as the master.
class ScriptedProgram {
 public:
  ScriptedProgram(std::int32_t itsPid, FileDescriptor terminal, int itsMaster)
      : pid(itsPid), master(itsMaster), terminal_(std::move(terminal)) {}

  // What of it the terminal takes.
  void print(std::string_view text);
  // What was typed since.
  std::string takeInput();
  void closeTerminal() { terminal_.close(); }
  void end(std::int32_t status);
  bool isRunning() const { return !status; }
  bool holdsTerminal() const { return terminal_.isOpen(); }
  // Everything that was printed while the service held the terminal.
  const std::string& printed() const { return printed_; }

  const std::int32_t pid;
  // As the service numbers it; once that has closed it, the number may be another terminal's.
  const int master;
  bool echoes = true;
  bool ignoresHangUp = false;
  // How it ended; nobody has asked yet until it is reaped.
  std::optional<std::int32_t> status;
  bool isReaped = false;

 private:
  FileDescriptor terminal_;
  std::string printed_;
};

// All programs of one run. It stands in for the system's pseudo-terminals and processes: the functions of
// terminal/pseudo_terminal.h, kill(2) and tcgetpgrp(3) ask it instead.
class ScriptedTerminals {
 public:
  static ScriptedTerminals& instance();

  void reset() { *this = {}; }
  ScriptedProgram* find(std::int32_t pid);
  ScriptedProgram* findMaster(int master);

  // In the order of their starts.
  std::deque<ScriptedProgram> programs;
  bool refusesToStart = false;
};

// For the directory of a run: in memory where the system has such a place.
std::string quickestParent();

// Begins the row of "random" numbers anew, so that a run repeats itself.
void restartEntropy();

}  // namespace velotide
