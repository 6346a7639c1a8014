#include "commands/unicode_text.h"

#include <unicode/brkiter.h>
#include <unicode/ustring.h>
#include <unicode/utext.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <cstdint>
#include <memory>

namespace velotide {

namespace {

std::int32_t length(auto text) { return static_cast<std::int32_t>(text.size()); }

}  // namespace

bool isNewline(char16_t unit) {
  return (unit >= u'\n' && unit <= u'\r') || unit == 0x85 || unit == 0x2028 || unit == 0x2029;
}

bool isAscii(std::u16string_view text) {
  char16_t bits = 0;
  for (const char16_t unit : text) bits = static_cast<char16_t>(bits | unit);
  return bits < 0x80;
}

std::u16string toUtf16(std::string_view text) {
  if (isAscii(text)) return {text.begin(), text.end()};
  std::u16string wide(text.size(), u'\0');  // never more units than bytes
  std::int32_t written = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8WithSub(wide.data(), length(wide), &written, text.data(), length(text), 0xFFFD, nullptr,
                       &status);
  wide.resize(U_SUCCESS(status) ? static_cast<std::size_t>(written) : 0);
  return wide;
}

std::string toUtf8(std::u16string_view text) {
  std::string narrow(text.size() * 3, '\0');
  std::int32_t written = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8WithSub(narrow.data(), length(narrow), &written, text.data(), length(text), 0xFFFD, nullptr,
                     &status);
  narrow.resize(U_SUCCESS(status) ? static_cast<std::size_t>(written) : 0);
  return narrow;
}

std::u16string_view trimmed(std::u16string_view text) {
  while (!text.empty() && isWhiteSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isWhiteSpace(text.back())) text.remove_suffix(1);
  return text;
}

void lowerCase(std::u16string_view text, std::u16string& lower) {
  if (isAscii(text)) {
    lower.resize(text.size());
    std::transform(text.begin(), text.end(), lower.begin(), [](char16_t unit) {
      return static_cast<char16_t>(unit >= u'A' && unit <= u'Z' ? unit + (u'a' - u'A') : unit);
    });
    return;
  }
  lower.resize(text.size() * 3);  // the most that one unit grows to
  UErrorCode status = U_ZERO_ERROR;
  const std::int32_t written =
      u_strToLower(lower.data(), length(lower), text.data(), length(text), "", &status);
  lower.resize(U_SUCCESS(status) ? static_cast<std::size_t>(written) : 0);
}

std::u16string_view firstCharacters(std::u16string_view text, std::size_t count) {
  if (text.size() <= count) return text;
  // In ASCII only a carriage return can join what follows it.
  const std::u16string_view head = text.substr(0, count + 1);
  if (isAscii(head) && head.find(u'\r') == head.npos) return text.substr(0, count);
  UErrorCode status = U_ZERO_ERROR;
  thread_local const std::unique_ptr<icu::BreakIterator> characters(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  if (!characters) return text.substr(0, count);
  UText* view = utext_openUChars(nullptr, text.data(), length(text), &status);
  if (U_SUCCESS(status)) characters->setText(view, status);
  utext_close(view);
  if (U_FAILURE(status)) return text.substr(0, count);
  const std::int32_t end = characters->next(static_cast<std::int32_t>(count));
  return end == icu::BreakIterator::DONE ? text : text.substr(0, static_cast<std::size_t>(end));
}

}  // namespace velotide
