#include "client/terminal_modes.h"

#include <algorithm>

namespace velotide::client {

namespace {

// Whether a rendition only takes back what an earlier one set.
bool isTakingBack(int rendition) {
  return (rendition >= 22 && rendition <= 29) || rendition == 39 || rendition == 49 || rendition == 54 ||
         rendition == 55 || rendition == 59;
}

// How many of the parameters that follow name the colour of the letters, the ground or the underline; the
// first of them tells the form.
std::size_t colorParameters(int rendition, int form) {
  if (rendition != 38 && rendition != 48 && rendition != 58) return 0;
  return form == 2 ? 4 : form == 5 ? 2 : 0;
}

}  // namespace

void TerminalModes::observe(std::string_view output) {
  scanner_.scan(
      output, [this](std::string_view text) { observeText(text); },
      [this](std::string_view sequence) { observeSequence(sequence); });
}

// The shifts into another character set and back.
void TerminalModes::observeText(std::string_view text) {
  const std::size_t last = scanner_.isLettingThrough() ? text.npos : text.find_last_of("\x0e\x0f");
  if (last != text.npos) simple_.set(shift, text[last] == '\x0e');
}

void TerminalModes::observeSequence(std::string_view sequence) {
  if (const std::optional<ControlSequence> control = ControlSequence::parse(sequence)) {
    observeControl(*control);
  } else if (sequence == "\x1b=" || sequence == "\x1b>") {
    simple_.set(keypad, sequence.back() == '=');
  } else if (sequence ==
             "\x1b"
             "c") {
    changed_.reset();
    simple_.reset();
    keyboards_ = {};
  } else if (sequence.size() == 3 && (sequence[1] == '(' || sequence[1] == ')')) {
    simple_.set(sequence[1] == '(' ? charset : otherCharset, sequence.back() != 'B');
  }
}

void TerminalModes::observeControl(const ControlSequence& control) {
  const bool isPlain = control.prefix == 0 && control.intermediates.empty();
  if (control.intermediates.empty() && (control.final == 'h' || control.final == 'l')) {
    for (const int number : control.parameters) setMode(control.prefix, number, control.final == 'h');
  } else if (control.final == 'u' && control.prefix != 0 && control.prefix != '?') {
    observeKeyboard(control);
  } else if (isPlain && control.final == 'r') {
    simple_.set(region, !control.parameters.empty());
  } else if (isPlain && control.final == 'm') {
    observeRendition(control);
  } else if (control.prefix == '>' && control.final == 'm' && control.parameter(0) == 4) {
    simple_.set(otherKeys, control.parameter(1) != 0);
  } else if (control.prefix == 0 && control.intermediates == " " && control.final == 'q') {
    simple_.set(cursorShape, control.parameter(0) != 0);
  } else if (control.intermediates == "!" && control.final == 'p') {
    softReset();
  }
}

void TerminalModes::setMode(char prefix, int number, bool isOn) {
  for (std::size_t index = 0; index < modes.size(); ++index) {
    if (modes[index].prefix == prefix && modes[index].number == number)
      changed_.set(index, isOn != modes[index].isOrdinarilyOn);
  }
}

bool TerminalModes::isChanged(int privateMode) const {
  for (std::size_t index = 0; index < modes.size(); ++index) {
    if (modes[index].prefix == '?' && modes[index].number == privateMode) return changed_[index];
  }
  return false;
}

bool TerminalModes::isOnAlternateScreen() const {
  return isChanged(47) || isChanged(1047) || isChanged(1049);
}

void TerminalModes::observeRendition(const ControlSequence& control) {
  if (control.parameters.empty()) simple_.reset(rendition);
  for (std::size_t index = 0; index < control.parameters.size(); ++index) {
    const int parameter = control.parameters[index];
    if (!isTakingBack(parameter)) simple_.set(rendition, parameter != 0);
    index += colorParameters(parameter, control.parameter(index + 1));
  }
}

void TerminalModes::observeKeyboard(const ControlSequence& control) {
  Keyboard& keyboard = keyboards_[isOnAlternateScreen() ? 1 : 0];
  if (control.prefix == '>') {
    // Terminals hold few; a program that pushes without end must not make the way out long.
    keyboard.pushed = std::min(keyboard.pushed + 1, 64);
  } else if (control.prefix == '<') {
    keyboard.pushed = std::max(keyboard.pushed - control.parameter(0, 1), 0);
  } else {
    keyboard.isSet = control.parameter(0) != 0;
  }
}

void TerminalModes::softReset() {
  simple_.reset();
  for (const int number : {2, 4}) setMode(0, number, false);
  for (const int number : {1, 6, 25, 66}) setMode('?', number, number == 25);
}

std::string TerminalModes::Keyboard::switchOff() const {
  std::string text;
  if (isSet) text += "\x1b[=0u";
  if (pushed > 0) text += "\x1b[<" + std::to_string(pushed) + "u";
  return text;
}

std::string TerminalModes::switchOff() const {
  static constexpr std::array<std::string_view, simpleCount> switches = {
      "\x1b>", "\0337\x1b[r\0338", "\x1b[m", "\x0f", "\x1b(B", "\x1b)B", "\x1b[0 q", "\x1b[>4m"};
  std::string text;
  for (std::size_t index = 0; index < simpleCount; ++index) {
    if (simple_[index]) text += switches[index];
  }
  if (isOnAlternateScreen()) text += keyboards_[1].switchOff();
  for (std::size_t index = 0; index < modes.size(); ++index) {
    if (!changed_[index]) continue;
    const Mode& mode = modes[index];
    text += mode.prefix == 0 ? "\x1b[" : "\x1b[?";
    text += std::to_string(mode.number) + (mode.isOrdinarilyOn ? "h" : "l");
  }
  return text + keyboards_[0].switchOff();
}

}  // namespace velotide::client
