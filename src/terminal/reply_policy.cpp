#include "terminal/reply_policy.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <memory>

#include "base/utf8.h"

namespace velotide {

namespace {

constexpr std::size_t maximumReplyBytes = 1024;
constexpr std::size_t maximumMouseBytes = 64;
constexpr std::uint8_t lowestClassicByte = 0x20;

std::unique_ptr<const icu::RegexPattern> compiled(const char16_t* pattern) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<const icu::RegexPattern> result(
      icu::RegexPattern::compile(icu::UnicodeString(pattern), 0, status));
  return U_SUCCESS(status) ? std::move(result) : nullptr;
}

icu::UnicodeString decoded(ByteView utf8) {
  return icu::UnicodeString::fromUTF8(
      {reinterpret_cast<const char*>(utf8.data()), static_cast<int>(utf8.size())});
}

// A pattern that could not be compiled matches nothing.
bool matchesWhole(const icu::RegexPattern* pattern, ByteView utf8) {
  if (pattern == nullptr || !isValidUtf8(utf8)) return false;
  const icu::UnicodeString text = decoded(utf8);
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(text, status));
  if (U_FAILURE(status) || !matcher->find(status) || U_FAILURE(status)) return false;
  return matcher->start(status) == 0 && matcher->end(status) == text.length();
}

bool isClassicReport(ByteView coordinates) {
  if (coordinates.size() == 3) {
    return std::ranges::all_of(coordinates, [](std::uint8_t byte) { return byte >= lowestClassicByte; });
  }
  if (!isValidUtf8(coordinates)) return false;
  const icu::UnicodeString text = decoded(coordinates);
  if (text.countChar32() != 3) return false;
  for (int at = 0; at < text.length(); at = text.moveIndex32(at, 1)) {
    if (text.char32At(at) < lowestClassicByte) return false;
  }
  return true;
}

}  // namespace

bool TerminalRuntimeReplyPolicy::allows(ByteView data) {
  static const auto pattern = compiled(
      u"^(?:\x1b\\[[0-9;?><]{0,80}[Rcnt]"
      u"|\x1b\\][0-9]{1,2};rgb:[0-9a-fA-F]{1,4}/[0-9a-fA-F]{1,4}/[0-9a-fA-F]{1,4}(?:\a|\x1b\\\\)"
      u"|\x1b_Gi=[0-9]{1,10};(?:OK|ENOTSUP)\x1b\\\\){1,16}$");
  return !data.empty() && data.size() <= maximumReplyBytes && matchesWhole(pattern.get(), data);
}

bool TerminalMouseReportPolicy::isMouseReport(ByteView data) {
  static const auto pattern =
      compiled(u"^(?:<[0-9]{1,3};[0-9]{1,8};[0-9]{1,8}[Mm]|[0-9]{1,3};[0-9]{1,8};[0-9]{1,8}M)$");
  if (data.size() > maximumMouseBytes) return false;
  if (data.size() >= 2 && data[0] == 0x1B && data[1] == '[') {
    data = data.subspan(2);
  } else if (!data.empty() && data[0] == 0x9B) {
    data = data.subspan(1);
  } else {
    return false;
  }
  if (!data.empty() && data[0] == 'M') return isClassicReport(data.subspan(1));
  return matchesWhole(pattern.get(), data);
}

}  // namespace velotide
