#include "client/past_output.h"

#include <algorithm>
#include <array>
#include <utility>

#include "client/control_sequence.h"

namespace velotide::client {

namespace {

constexpr char lead = '\xc2';
// A mode whose setting is answered at once, and those that draw nothing and take the keyboard or its echo.
constexpr int inBandResize = 2048;
constexpr int keyboardLock = 2;
constexpr int sendReceive = 12;
// Greater ones, which a terminal may take for any other.
constexpr int unknownMode = 65535;

bool isWithin(char byte, char first, char last) { return byte >= first && byte <= last; }

bool isC1Trail(char byte) { return isWithin(byte, '\x80', '\x9f'); }

bool isAmong(char byte, std::string_view set) { return set.find(byte) != std::string_view::npos; }

bool isShownText(char byte) {
  if (byte == '\x7f') return false;
  return static_cast<unsigned char>(byte) >= 0x20 || isAmong(byte, "\b\t\n\v\f\r\x0e\x0f");
}

// Inside a picture, where other controls would still be obeyed. ESC only begins and ends it.
bool isPictureByte(char byte) {
  return static_cast<unsigned char>(byte) >= 0x20 || isWithin(byte, '\b', '\r') || byte == '\x1b';
}

bool hasControls(std::string_view text) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (isWithin(text[at], '\0', '\x1f') || text[at] == '\x7f') return true;
    if (text[at] == lead && at + 1 < text.size() && isC1Trail(text[at + 1])) return true;
  }
  return false;
}

// By prefix and intermediates, the finals of what draws, moves or sets. What reports, prints on paper or
// moves the window is not among them.
struct DrawingControls {
  char prefix;
  std::string_view intermediates;
  std::string_view finals;
};
constexpr std::array drawing = {
    DrawingControls{0, "", "@ABCDEFGHIJKLMPSTXZ`abdefghlmrsu"},
    DrawingControls{'?', "", "hlJKrs"},
    DrawingControls{'>', "", "mu"},
    DrawingControls{'<', "", "u"},
    DrawingControls{'=', "", "u"},
    DrawingControls{0, " ", "@Aq"},
    DrawingControls{0, "!", "p"},
    DrawingControls{0, "\"", "q"},
    DrawingControls{0, "$", "rtvxz{"},
    DrawingControls{0, "'", "}~"},
};

bool draws(const ControlSequence& control) {
  const auto names = [&](int mode) {
    return std::ranges::find(control.parameters, mode) != control.parameters.end();
  };
  if (control.prefix == '?' && names(inBandResize)) return false;
  if (isAmong(control.final, "hl") &&
      (names(unknownMode) || (control.prefix == 0 && (names(keyboardLock) || names(sendReceive)))))
    return false;
  // The titles' stack.
  if (control.final == 't' && control.prefix == 0 && control.intermediates.empty())
    return control.parameter(0) == 22 || control.parameter(0) == 23;
  return std::ranges::any_of(drawing, [&](const DrawingControls& row) {
    return row.prefix == control.prefix && row.intermediates == control.intermediates &&
           isAmong(control.final, row.finals);
  });
}

// Screen, cursor and keypad by themselves, and which letters are drawn.
bool drawsAlone(std::string_view sequence) {
  if (sequence.size() == 2) return isAmong(sequence[1], "78DEHMc=>");
  return sequence.size() == 3 && isAmong(sequence[1], "()*+#") && isWithin(sequence[2], '0', '~');
}

// Titles, colours, the directory, links and prompts.
bool isShownCommand(std::string_view body) {
  const std::size_t end = std::min(body.find(';'), body.size());
  const std::string_view number = body.substr(0, end);
  constexpr std::array<std::string_view, 6> plain = {"0", "1", "2", "7", "8", "133"};
  constexpr std::array<std::string_view, 20> colors = {"4",   "5",   "10",  "11",  "12",  "13",  "14",
                                                       "15",  "16",  "17",  "19",  "104", "105", "110",
                                                       "111", "112", "113", "114", "117", "119"};
  if (std::ranges::find(plain, number) != plain.end()) return true;
  // A question mark in the place of a colour asks for it.
  return std::ranges::find(colors, number) != colors.end() && body.find('?') == std::string_view::npos;
}

// An image in the form that is never answered: ESC P, digits, q.
bool isPicture(std::string_view sequence) {
  const std::size_t end = sequence.find_first_not_of("0123456789;", 2);
  return sequence.starts_with("\x1bP") && end != std::string_view::npos && sequence[end] == 'q';
}

// One of the graphics protocol that carries its own data and names nothing to be answered about, or asks for
// silence. Where a key is repeated, some terminals go by the first and some by the last.
bool isSilentGraphics(std::string_view body) {
  if (!body.starts_with('G')) return false;
  std::string_view keys = body.substr(1, body.find(';') - 1);
  bool isNamed = false;
  bool isSilent = false;
  while (!keys.empty()) {
    const std::string_view key = keys.substr(0, keys.find(','));
    keys.remove_prefix(std::min(key.size() + 1, keys.size()));
    if (key == "a=q" || (key.starts_with("t=") && key != "t=d") || (key.starts_with("q=") && key != "q=2"))
      return false;
    isNamed |= key.starts_with("i=") || key.starts_with("I=");
    isSilent |= key == "q=2";
  }
  return isSilent || !isNamed;
}

bool isShownString(std::string_view sequence) {
  const std::string_view body = sequence.substr(2, sequence.size() - 2 - (sequence.ends_with('\a') ? 1 : 2));
  if (sequence[1] == 'P') return isPicture(sequence) && std::ranges::all_of(body, isPictureByte);
  if (hasControls(body)) return false;
  if (sequence[1] == ']') return isShownCommand(body);
  return sequence[1] == '_' && isSilentGraphics(body);
}

bool isShownSequence(std::string_view sequence) {
  if (sequence.size() < 2 || hasControls(sequence.substr(1, 1))) return false;
  if (const auto control = ControlSequence::parse(sequence)) return draws(*control);
  if (sequence.size() > 3 && isAmong(sequence[1], "]P_^X")) return isShownString(sequence);
  return drawsAlone(sequence);
}

}  // namespace

std::string PastOutput::filter(std::string_view output) {
  scanner_.scan(
      output, [this](std::string_view text) { keepText(text); },
      [this](std::string_view sequence) {
        if (isShownSequence(sequence)) {
          show(sequence);
          isLongOpen_ = false;
        } else {
          closeLongSequence();
        }
      });
  return std::exchange(shown_, {});
}

void PastOutput::keepText(std::string_view text) {
  const bool isBeginning = text.starts_with('\x1b');
  if (scanner_.isLettingThrough()) {
    if (isBeginning && text.size() >= SequenceScanner::maximumSequence) isLongShown_ = isPicture(text);
    std::string kept;
    if (isLongShown_) std::ranges::copy_if(text, std::back_inserter(kept), isPictureByte);
    show(kept);
    isLongOpen_ = isLongShown_ && scanner_.isInside();
    return;
  }
  // A sequence that was cut off by another one. Some terminals carry it out nevertheless, and what follows
  // would go on with it.
  if (isBeginning) return;
  closeLongSequence();
  std::string kept;
  std::ranges::copy_if(text, std::back_inserter(kept), isShownText);
  show(kept);
}

// What cut the long sequence off is left out and cannot end it.
void PastOutput::closeLongSequence() {
  if (std::exchange(isLongOpen_, false)) show("\x18");
}

// Here, where pieces meet, so that nothing left out between two bytes makes a control character of them.
void PastOutput::show(std::string_view bytes) {
  for (const char byte : bytes) {
    shown_ += isLeadShown_ && isC1Trail(byte) ? '?' : byte;
    isLeadShown_ = byte == lead;
  }
}

}  // namespace velotide::client
