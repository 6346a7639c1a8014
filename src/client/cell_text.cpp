#include "client/cell_text.h"

#include <unicode/uchar.h>

#include "base/utf8.h"

namespace velotide::client {

namespace {

constexpr std::string_view ellipsis = "…";
constexpr int maximumMarks = 4;

bool isHarmful(char32_t character) {
  constexpr std::uint32_t harmful =
      U_GC_CC_MASK | U_GC_CF_MASK | U_GC_CS_MASK | U_GC_CO_MASK | U_GC_CN_MASK | U_GC_ZL_MASK | U_GC_ZP_MASK;
  return (U_GET_GC_MASK(static_cast<UChar32>(character)) & harmful) != 0;
}

// Terminals disagree on the width of what these follow; without them they agree.
bool isVariationSelector(char32_t character) {
  return u_hasBinaryProperty(static_cast<UChar32>(character), UCHAR_VARIATION_SELECTOR) != 0;
}

std::size_t cellsOf(char32_t character) {
  if (character < 0x300) return 1;
  const auto point = static_cast<UChar32>(character);
  if ((U_GET_GC_MASK(point) & (U_GC_MN_MASK | U_GC_ME_MASK)) != 0) return 0;
  // Vowels and final consonants join the syllable before them.
  const int syllable = u_getIntPropertyValue(point, UCHAR_HANGUL_SYLLABLE_TYPE);
  if (syllable == U_HST_VOWEL_JAMO || syllable == U_HST_TRAILING_JAMO) return 0;
  const int width = u_getIntPropertyValue(point, UCHAR_EAST_ASIAN_WIDTH);
  return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

}  // namespace

std::string shownText(std::string_view text) {
  std::string shown;
  for (int marks = 0; !text.empty();) {
    const std::string_view rest = text;
    const char32_t character = takeFirstScalar(text);
    const std::string_view bytes = rest.substr(0, rest.size() - text.size());
    if (isVariationSelector(character)) continue;
    if (isHarmful(character)) {
      shown += '?';
      continue;
    }
    marks = cellsOf(character) == 0 ? marks + 1 : 0;
    if (marks > maximumMarks) continue;
    // Bytes that are no text stand for U+FFFD.
    shown += character == 0xfffd ? "\xef\xbf\xbd" : bytes;
  }
  return shown;
}

std::size_t cellsOf(std::string_view text) {
  std::size_t cells = 0;
  while (!text.empty()) cells += cellsOf(takeFirstScalar(text));
  return cells;
}

std::string keepBeginning(std::string_view text, std::size_t cells) {
  if (cellsOf(text) <= cells) return std::string(text);
  if (cells == 0) return "";
  std::string_view rest = text;
  std::size_t kept = 0;
  for (std::size_t taken = 0; !rest.empty(); kept = text.size() - rest.size()) {
    taken += cellsOf(takeFirstScalar(rest));
    if (taken > cells - 1) break;
  }
  return std::string(text.substr(0, kept)) + std::string(ellipsis);
}

std::string keepEnd(std::string_view text, std::size_t cells) {
  if (cells == 0) return "";
  std::size_t width = cellsOf(text);
  if (width <= cells) return std::string(text);
  // A mark never comes first: it would join the sign of the cut.
  while (!text.empty()) {
    std::string_view rest = text;
    const std::size_t first = cellsOf(takeFirstScalar(rest));
    if (width <= cells - 1 && first > 0) break;
    width -= first;
    text = rest;
  }
  return std::string(ellipsis) + std::string(text);
}

std::string alignLeft(std::string_view text, std::size_t cells) {
  std::string line = keepBeginning(text, cells);
  line.append(cells - cellsOf(line), ' ');
  return line;
}

std::string alignRight(std::string_view text, std::size_t cells) {
  const std::string line = keepBeginning(text, cells);
  return std::string(cells - cellsOf(line), ' ') + line;
}

}  // namespace velotide::client
