#pragma once

#include <termios.h>

#include <cstddef>
#include <optional>
#include <string_view>

#include "base/bytes.h"
#include "base/file_descriptor.h"
#include "base/time.h"

namespace velotide::client {

struct WindowSize {
  std::int64_t columns;
  std::int64_t rows;

  bool operator==(const WindowSize&) const = default;
};

// The terminal this client sits at. Raw while an object of this class says so, and as it was before in the
// end, whichever way that comes.
class LocalTerminal {
 public:
  // Whether standard input and output are one.
  static bool isPresent();
  // Whether colours are welcome: unless NO_COLOR has a value.
  static bool isColored();
  // Its size, within what a session can have, if there is one; else the protocol's default.
  static std::optional<WindowSize> sizeIfPresent();
  static WindowSize size();

  // Throws Trouble when it cannot be used.
  LocalTerminal();
  ~LocalTerminal() { restore(); }
  LocalTerminal(const LocalTerminal&) = delete;
  LocalTerminal& operator=(const LocalTerminal&) = delete;

  int input() const;
  int output() const { return output_.isOpen() ? output_.get() : fallbackOutput; }

  void makeRaw();
  void restore();

  // Writes what the terminal takes now: its number, or -1 when the terminal is gone.
  std::ptrdiff_t write(ByteView bytes);
  // Writes all of it unless the terminal stands still for `limit`.
  void writeAll(std::string_view text, Seconds limit);

 private:
  static constexpr int fallbackOutput = 1;

  // Opened anew, so that it does not block while the shell's own descriptor does.
  FileDescriptor output_;
  termios ordinary_{};
  bool isRaw_ = false;
};

}  // namespace velotide::client
