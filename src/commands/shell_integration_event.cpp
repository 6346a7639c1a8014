#include "commands/shell_integration_event.h"

#include <array>
#include <charconv>

#include "base/utf8.h"

namespace velotide {

namespace {

int hexDigit(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  return -1;
}

// Text that travels as pairs of hexadecimal digits, so that it cannot end the mark or break the grammar.
std::optional<std::string> decodeHexText(std::string_view field) {
  const std::string_view digits = trimmed(field);
  if (digits.empty() || digits.size() % 2 != 0) return std::nullopt;
  std::string text(digits.size() / 2, '\0');
  for (std::size_t index = 0; index < text.size(); ++index) {
    const int high = hexDigit(digits[2 * index]);
    const int low = hexDigit(digits[2 * index + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    text[index] = static_cast<char>(high * 16 + low);
  }
  if (!isValidUtf8(bytesOf(text))) return std::nullopt;
  return text;
}

template <typename Integer>
std::optional<Integer> parseDecimal(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  Integer value = 0;
  const char* end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc{} || stopped != end) return std::nullopt;
  return value;
}

using Event = std::optional<TerminalShellIntegrationEvent>;

Event parseStart(std::string_view rest) {
  const std::optional<std::string> text = decodeHexText(rest);
  if (!text) return std::nullopt;
  return TerminalShellCommandStarted{std::string(trimmed(*text))};
}

Event parseEnd(std::string_view rest) {
  const auto exitCode = parseDecimal<std::int32_t>(trimmed(rest));
  if (!exitCode) return std::nullopt;
  return TerminalShellCommandFinished{*exitCode};
}

Event parseShell(std::string_view rest) {
  const std::string_view name = trimmed(rest);
  if (name.empty()) return std::nullopt;
  return TerminalShellDetected{std::string(name)};
}

Event parseContext(std::string_view rest) {
  std::array<std::string_view, 5> fields;
  for (std::size_t index = 0; index < fields.size(); ++index) {
    const bool last = index + 1 == fields.size();
    const std::size_t comma = rest.find(',');
    if (last != (comma == rest.npos)) return std::nullopt;
    fields[index] = rest.substr(0, comma);
    if (!last) rest.remove_prefix(comma + 1);
  }
  TerminalShellReportedContext context{decodeHexText(fields[0]), decodeHexText(fields[1]),
                                       parseDecimal<std::int64_t>(fields[2]), decodeHexText(fields[3]),
                                       decodeHexText(fields[4])};
  if (context.isEmpty()) return std::nullopt;
  return context;
}

}  // namespace

Event parseShellIntegrationPayload(std::string_view payload) {
  struct Form {
    std::string_view name;
    Event (*parse)(std::string_view rest);
  };
  static constexpr std::array<Form, 4> forms{
      {{"start=", parseStart}, {"end=", parseEnd}, {"shell=", parseShell}, {"context=", parseContext}}};
  for (const Form& form : forms) {
    if (payload.starts_with(form.name)) return form.parse(payload.substr(form.name.size()));
  }
  return std::nullopt;
}

}  // namespace velotide
