#pragma once

#include <array>
#include <bitset>
#include <string>
#include <string_view>

#include "client/control_sequence.h"
#include "client/sequence_scanner.h"

namespace velotide::client {

// Watches what a program writes to a terminal and knows which modes it left switched on, so that they, and
// only they, can be switched off when the terminal is given back.
class TerminalModes {
 public:
  void observe(std::string_view output);

  // What returns the terminal to its ordinary state; empty when it is in it.
  std::string switchOff() const;
  bool isOnAlternateScreen() const;
  bool isCursorHidden() const { return isChanged(25); }
  bool hasApplicationKeys() const { return isChanged(1); }
  // Whether something may be written between what was observed and what comes.
  bool isBetweenSequences() const { return !scanner_.isInside(); }

 private:
  struct Mode {
    // '?' of a private one.
    char prefix;
    int number;
    bool isOrdinarilyOn;
  };
  // In the order in which they are switched off.
  static constexpr std::array modes = {
      Mode{0, 2, false},      Mode{0, 4, false},      Mode{0, 12, true},      Mode{0, 20, false},
      Mode{'?', 1, false},    Mode{'?', 3, false},    Mode{'?', 5, false},    Mode{'?', 6, false},
      Mode{'?', 7, true},     Mode{'?', 8, true},     Mode{'?', 9, false},    Mode{'?', 12, false},
      Mode{'?', 66, false},   Mode{'?', 69, false},   Mode{'?', 1000, false}, Mode{'?', 1002, false},
      Mode{'?', 1003, false}, Mode{'?', 1004, false}, Mode{'?', 1005, false}, Mode{'?', 1006, false},
      Mode{'?', 1007, true},  Mode{'?', 1015, false}, Mode{'?', 1016, false}, Mode{'?', 2004, false},
      Mode{'?', 2026, false}, Mode{'?', 2031, false}, Mode{'?', 2048, false}, Mode{'?', 9001, false},
      Mode{'?', 47, false},   Mode{'?', 1047, false}, Mode{'?', 1049, false}, Mode{'?', 25, true},
  };
  // Keyboard reports that were asked for, on one of the two screens.
  struct Keyboard {
    int pushed = 0;
    bool isSet = false;
    std::string switchOff() const;
  };
  // What has one switch of its own.
  enum Simple {
    keypad,
    region,
    rendition,
    shift,
    charset,
    otherCharset,
    cursorShape,
    otherKeys,
    simpleCount,
  };

  void observeText(std::string_view text);
  void observeSequence(std::string_view sequence);
  void observeControl(const ControlSequence& control);
  bool isChanged(int privateMode) const;
  void setMode(char prefix, int number, bool isOn);
  void observeRendition(const ControlSequence& control);
  void observeKeyboard(const ControlSequence& control);
  void softReset();

  SequenceScanner scanner_;
  std::bitset<modes.size()> changed_;
  std::bitset<simpleCount> simple_;
  std::array<Keyboard, 2> keyboards_;
};

}  // namespace velotide::client
