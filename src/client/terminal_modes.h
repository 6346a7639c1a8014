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
  // Whether something may be written between what was observed and what comes.
  bool isBetweenSequences() const { return !scanner_.isInside(); }

 private:
  struct PrivateMode {
    int number;
    bool isOrdinarilyOn;
  };
  // In the order in which they are switched off.
  static constexpr std::array privateModes = {
      PrivateMode{1, false},    PrivateMode{5, false},    PrivateMode{6, false},    PrivateMode{7, true},
      PrivateMode{9, false},    PrivateMode{66, false},   PrivateMode{69, false},   PrivateMode{1000, false},
      PrivateMode{1002, false}, PrivateMode{1003, false}, PrivateMode{1004, false}, PrivateMode{1005, false},
      PrivateMode{1006, false}, PrivateMode{1015, false}, PrivateMode{1016, false}, PrivateMode{2004, false},
      PrivateMode{2026, false}, PrivateMode{2031, false}, PrivateMode{2048, false}, PrivateMode{47, false},
      PrivateMode{1047, false}, PrivateMode{1049, false}, PrivateMode{25, true},
  };
  // Keyboard reports that were asked for, on one of the two screens.
  struct Keyboard {
    int pushed = 0;
    bool isSet = false;
    std::string switchOff() const;
  };
  // What has one switch of its own.
  enum Simple { keypad, insertion, region, rendition, charset, cursorShape, otherKeys, simpleCount };

  void observeSequence(std::string_view sequence);
  void observeControl(const ControlSequence& control);
  bool isChanged(int number) const;
  void setPrivateMode(int number, bool isOn);
  void observeRendition(const ControlSequence& control);
  void observeKeyboard(const ControlSequence& control);
  void softReset();

  SequenceScanner scanner_;
  std::bitset<privateModes.size()> changed_;
  std::bitset<simpleCount> simple_;
  std::array<Keyboard, 2> keyboards_;
};

}  // namespace velotide::client
