#pragma once

#include <string>
#include <string_view>

#include "base/byte_queue.h"
#include "client/local_terminal.h"
#include "client/terminal_modes.h"

namespace velotide::client {

// The terminal's side of an attached session: the session's output on its way to the terminal, notes between
// it, and the way back to the terminal as it was.
class AttachedScreen {
 public:
  // Output that the terminal did not take yet. Past `fullAt`, stop reading until less is left.
  static constexpr std::size_t fullAt = 256 * 1024;

  AttachedScreen() = default;
  // Gives the terminal back if that was not done.
  ~AttachedScreen() { giveBack(); }
  AttachedScreen(const AttachedScreen&) = delete;
  AttachedScreen& operator=(const AttachedScreen&) = delete;

  LocalTerminal& terminal() { return terminal_; }
  void take();
  // Writes what is left as long as the terminal moves, switches off what the session switched on, and ends
  // raw mode.
  void giveBack();

  void show(std::string_view output);
  // In the first row, once the output allows it, and without moving the cursor.
  void note(std::string_view text);
  // Ends a sequence that was cut off by missing output.
  void cutSequence();
  void clear();

  std::size_t waiting() const { return queue_.size(); }
  bool isFull() const { return queue_.size() > fullAt; }
  bool isOnAlternateScreen() const { return modes_.isOnAlternateScreen(); }
  // Whether the last line was left unfinished.
  bool isMidLine() const { return isMidLine_; }
  // Writes what the terminal takes now. False when it is gone.
  bool flush();

 private:
  static constexpr Seconds standstill = 1;

  LocalTerminal terminal_;
  TerminalModes modes_;
  ByteQueue queue_;
  std::string pendingNote_;
  bool isTaken_ = false;
  bool isMidLine_ = false;
};

}  // namespace velotide::client
