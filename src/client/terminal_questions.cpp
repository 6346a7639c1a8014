#include "client/terminal_questions.h"

#include <algorithm>
#include <cctype>

#include "client/control_sequence.h"

namespace velotide::client {

namespace {

using Kind = SessionInput::Kind;

constexpr char cancel = '\x18';

bool isDigit(char letter) { return letter >= '0' && letter <= '9'; }

// ESC ] one or two digits ;rgb: three groups of one to four hexadecimal digits, and an end.
bool isColorAnswer(std::string_view sequence) {
  std::string_view rest = sequence.substr(2);
  std::size_t digits = 0;
  while (digits < rest.size() && isDigit(rest[digits])) ++digits;
  if (digits < 1 || digits > 2 || !rest.substr(digits).starts_with(";rgb:")) return false;
  rest.remove_prefix(digits + 5);
  rest.remove_suffix(rest.ends_with('\a') ? 1 : 2);
  std::size_t group = 0;
  int slashes = 0;
  for (const char letter : rest) {
    if (letter == '/') {
      if (group == 0 || ++slashes > 2) return false;
      group = 0;
    } else if (!std::isxdigit(static_cast<unsigned char>(letter)) || ++group > 4) {
      return false;
    }
  }
  return slashes == 2 && group > 0;
}

// ESC _Gi= one to ten digits ;OK or ;ENOTSUP ESC backslash.
bool isGraphicsAnswer(std::string_view sequence) {
  std::string_view rest = sequence.substr(2);
  if (!rest.starts_with("Gi=")) return false;
  rest.remove_prefix(3);
  std::size_t digits = 0;
  while (digits < rest.size() && isDigit(rest[digits])) ++digits;
  rest.remove_prefix(digits);
  return digits >= 1 && digits <= 10 && (rest == ";OK\x1b\\" || rest == ";ENOTSUP\x1b\\");
}

Kind kindOfControl(const ControlSequence& control, std::string_view sequence) {
  const bool isReport = std::string_view("Rcnt").find(control.final) != std::string_view::npos;
  // The service knows no answers with another prefix.
  if (isReport && control.prefix != '=' && control.intermediates.empty() && !control.parameters.empty() &&
      sequence.size() <= 83 && sequence.find(':') == std::string_view::npos) {
    // A function key with modifiers has the form of a cursor report from the first row.
    const bool isKey = control.final == 'R' && control.prefix == 0 && control.parameter(0) == 1;
    return isKey ? Kind::typed : Kind::reply;
  }
  const bool isModeAnswer = control.intermediates == "$" && control.final == 'y';
  const bool isKeyboardAnswer = control.prefix == '?' && control.final == 'u';
  return isModeAnswer || isKeyboardAnswer ? Kind::otherReply : Kind::typed;
}

bool isControlQuestion(const ControlSequence& control) {
  switch (control.final) {
    case 'c':
    case 'n':
    case 'x':
      return true;
    case 'p':
      return control.intermediates == "$";
    case 'q':
      return control.prefix == '>';
    case 'u':
      return control.prefix == '?';
    case 't':
      return control.prefix == 0 && control.parameter(0) >= 11 && control.parameter(0) <= 21;
    default:
      return false;
  }
}

bool isOutOfPlaceInPast(std::string_view sequence) {
  if (const std::optional<ControlSequence> control = ControlSequence::parse(sequence))
    return isControlQuestion(*control);
  if (sequence == "\x1bZ") return true;
  if (sequence.starts_with("\x1b]"))
    return sequence.find(";?") != std::string_view::npos || sequence.starts_with("\x1b]52;") ||
           sequence.starts_with("\x1b]9;");
  if (sequence.starts_with("\x1bP")) return sequence.find("$q") == 2 || sequence.find("+q") == 2;
  return sequence.starts_with("\x1b_G") && sequence.find("a=q") != std::string_view::npos;
}

}  // namespace

SessionInput::Kind kindOfSequence(std::string_view sequence) {
  if (const std::optional<ControlSequence> control = ControlSequence::parse(sequence))
    return kindOfControl(*control, sequence);
  const char introducer = sequence.size() > 3 ? sequence[1] : '\0';
  if (introducer == ']') return isColorAnswer(sequence) ? Kind::reply : Kind::otherReply;
  if (introducer == '_') return isGraphicsAnswer(sequence) ? Kind::reply : Kind::otherReply;
  return introducer == 'P' ? Kind::otherReply : Kind::typed;
}

std::string PastOutput::filter(std::string_view output) {
  std::string shown;
  scanner_.scan(
      output, [&](std::string_view text) { filterText(text, shown); },
      [&](std::string_view sequence) {
        if (!isOutOfPlaceInPast(sequence)) {
          shown += sequence;
        } else if (isInLong_) {
          // The long sequence before it ended where this one began.
          shown += cancel;
        }
        isInLong_ = false;
      });
  return shown;
}

void PastOutput::filterText(std::string_view text, std::string& shown) {
  const bool isBeginning = text.starts_with('\x1b');
  if (scanner_.isLettingThrough()) {
    if (isBeginning && text.size() >= SequenceScanner::maximumSequence) isInLong_ = !isOutOfPlaceInPast(text);
    if (isInLong_) shown += text;
    return;
  }
  // A sequence that was broken off would go on in what follows, if that is left out which broke it off.
  if (isBeginning) return;
  std::copy_if(text.begin(), text.end(), std::back_inserter(shown),
               [](char letter) { return letter != '\a' && letter != '\x05'; });
  isInLong_ = false;
}

}  // namespace velotide::client
