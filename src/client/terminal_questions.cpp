#include "client/terminal_questions.h"

#include <cctype>

#include "client/control_sequence.h"

namespace velotide::client {

namespace {

using Kind = SessionInput::Kind;

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

}  // namespace

SessionInput::Kind kindOfSequence(std::string_view sequence) {
  if (const std::optional<ControlSequence> control = ControlSequence::parse(sequence))
    return kindOfControl(*control, sequence);
  const char introducer = sequence.size() > 3 ? sequence[1] : '\0';
  if (introducer == ']') return isColorAnswer(sequence) ? Kind::reply : Kind::otherReply;
  if (introducer == '_') return isGraphicsAnswer(sequence) ? Kind::reply : Kind::otherReply;
  return introducer == 'P' ? Kind::otherReply : Kind::typed;
}

}  // namespace velotide::client
