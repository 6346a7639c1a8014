#include "commands/relative_path.h"

#include <unicode/uchar.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

namespace velotide {

namespace {

using Text = std::u16string_view;

// As the matcher understands \w.
bool isWordCharacter(char32_t character) {
  if (character < 0x80) {
    const char32_t lower = character | 0x20;
    return (lower >= 'a' && lower <= 'z') || (character >= '0' && character <= '9') || character == '_';
  }
  const auto code = static_cast<UChar32>(character);
  constexpr std::uint32_t others = U_GC_M_MASK | U_GC_ND_MASK | U_GC_PC_MASK;
  return u_hasBinaryProperty(code, UCHAR_ALPHABETIC) || (U_GET_GC_MASK(code) & others) != 0 ||
         character == 0x200C || character == 0x200D;
}

bool isNameCharacter(char32_t character) {
  return character == '.' || character == '-' || isWordCharacter(character);
}

bool isSegmentCharacter(char32_t character) {
  constexpr std::u32string_view others = U" @%+=:,~";
  return isNameCharacter(character) || others.find(character) != others.npos;
}

// Whether an extension begins here. Those that begin with a shorter one of the list need no mention.
bool beginsExtension(Text text) {
  static constexpr std::array<Text, 15> extensions{u"swift", u"go", u"js",   u"ts",  u"rb",
                                                   u"py",    u"rs", u"java", u"kt",  u"m",
                                                   u"c",     u"h",  u"yaml", u"yml", u"toml"};
  return std::any_of(extensions.begin(), extensions.end(), [&](Text each) { return text.starts_with(each); });
}

// The length of what may belong to an extension, line and column, at the front of the text.
std::size_t extensionLength(Text text) {
  const auto belongs = [](char16_t unit) { return unit >= 0x80 || unit == u':' || isWordCharacter(unit); };
  return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), belongs) - text.begin());
}

}  // namespace

Text RelativePathRegions::next() {
  while (at_ < line_.size()) {
    const std::size_t begin = at_;
    char32_t character;
    U16_NEXT(line_.data(), at_, line_.size(), character);
    const bool isSlash = character == '/';
    // A segment is never empty.
    const bool continues = isSlash ? previous_ != u'/' : isSegmentCharacter(character);
    const Run ended = continues ? Run{} : std::exchange(run_, Run{});
    if (isSlash) {
      readSlash();
    } else {
      readCharacter(character, begin);
    }
    previous_ = line_[at_ - 1];
    if (ended.isRegion()) return line_.substr(ended.regionBegin, ended.regionEnd - ended.regionBegin);
  }
  const Run ended = std::exchange(run_, Run{});
  return ended.isRegion() ? line_.substr(ended.regionBegin, ended.regionEnd - ended.regionBegin) : Text();
}

void RelativePathRegions::readSlash() {
  if (run_.regionBegin == none && run_.nameMayStart) run_.regionBegin = run_.wordBegin;
  run_.wordBegin = none;
  run_.nameMayStart = false;
}

void RelativePathRegions::readCharacter(char32_t character, std::size_t begin) {
  if (!isNameCharacter(character)) {
    run_.wordBegin = none;
    run_.nameMayStart = false;
    return;
  }
  if (run_.wordBegin == none) {
    run_.wordBegin = begin;
    // A match begins at a word's boundary; beyond ASCII the matcher has finer rules for that.
    run_.nameMayStart = previous_ >= 0x80;
  }
  run_.nameMayStart |= isWordCharacter(character);
  const bool endsSegment = character == '.' && previous_ != u'/' && run_.regionBegin != none;
  if (endsSegment && beginsExtension(line_.substr(at_))) {
    run_.regionEnd = at_ + extensionLength(line_.substr(at_));
  }
}

}  // namespace velotide
