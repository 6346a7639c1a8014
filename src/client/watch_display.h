#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/byte_queue.h"
#include "client/local_terminal.h"
#include "client/watch_screen.h"

namespace velotide::client {

// A terminal's whole screen, lent: the alternate screen without a cursor, in raw mode, until given back. Only
// lines that changed are written, and none while the terminal has not taken those before.
class WatchDisplay {
 public:
  explicit WatchDisplay(bool isColored) : isColored_(isColored) {}
  // Gives the terminal back if that was not done.
  ~WatchDisplay() { giveBack(); }
  WatchDisplay(const WatchDisplay&) = delete;
  WatchDisplay& operator=(const WatchDisplay&) = delete;

  LocalTerminal& terminal() { return terminal_; }
  void take();
  void giveBack();

  // Forget what the terminal shows: the next lines are all written.
  void forget();
  void draw(const std::vector<WatchLine>& lines);
  bool wantsWrite() const { return !queue_.empty(); }
  // Writes what the terminal takes now. False when it is gone.
  bool flush();

 private:
  static constexpr Seconds standstill = 1;

  std::string_view rendition(const WatchLine& line) const;

  LocalTerminal terminal_;
  ByteQueue queue_;
  std::vector<WatchLine> drawn_;
  bool isColored_;
  bool isTaken_ = false;
  bool isClear_ = false;
};

}  // namespace velotide::client
