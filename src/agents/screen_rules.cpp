#include "agents/screen_rules.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include "base/fatal.h"
#include "base/record.h"
#include "base/utf8.h"

namespace velotide {

namespace {

// No other text is canonically equivalent to an entry: their code points are the canonical form of nothing
// but themselves, and none carries a mark. Comparing bytes is therefore enough, as long as this holds.
constexpr std::array approveOptions = {"❯ 1. Yes", "› 1. Yes, proceed (y)", "❯ 1. 是", "› 1. 是，继续 (y)"};
constexpr std::array declineOptions = {"2. No", "3. No", "2. 否", "3. 否"};
constexpr std::array approvalQuestions = {"Do you want to proceed?",
                                          "Would you like to run the following command?", "是否继续？"};
constexpr std::array informationArguments = {"--help", "--version", "-h"};
// What a shell takes for one.
constexpr std::string_view commandSeparators = ";|&`$\n";

// The last bytes of a text, from the start of a code point on.
std::string_view lastBytes(std::string_view text, std::size_t count) {
  if (text.size() <= count) return text;
  text.remove_prefix(text.size() - count);
  while (!text.empty() && (text.front() & 0xC0) == 0x80) text.remove_prefix(1);
  return text;
}

// Where the last characters of a text begin, by the rules for grapheme clusters. Counted from the front: a
// step back may have to look at everything before it, and costs the more the longer the text.
std::size_t startOfLastCharacters(std::string_view text, std::size_t count) {
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<icu::BreakIterator> characters(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  UText* view = utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status);
  if (U_SUCCESS(status)) characters->setText(view, status);
  utext_close(view);
  if (U_FAILURE(status)) fatal("the rules for grapheme clusters are missing");
  // The starts of the characters seen last.
  std::vector<std::int32_t> starts(count);
  std::size_t seen = 0;
  for (std::int32_t start = 0, next = 0; (next = characters->next()) != icu::BreakIterator::DONE;
       start = next)
    starts[seen++ % count] = start;
  return seen <= count ? 0 : static_cast<std::size_t>(starts[seen % count]);
}

std::string_view lastCharacters(std::string_view text) {
  constexpr std::size_t count = TerminalAgentScreenRules::maximumCharacters;
  if (text.size() <= count) return text;
  // In ASCII only a carriage return and its line feed are one character. The byte before the tail counts too,
  // because it may belong to the first character of it.
  const std::string_view tail = text.substr(text.size() - count - 1);
  if (isAscii(tail) && tail.find("\r\n") == std::string_view::npos) return tail.substr(1);
  text = lastBytes(text, TerminalAgentScreenRules::maximumBytes);
  return text.substr(startOfLastCharacters(text, count));
}

// Where the line that ends at `end` begins. Only a line feed without a carriage return before it ends a line.
std::size_t startOfLine(std::string_view text, std::size_t end) {
  for (std::size_t at = end; at > 0; --at) {
    if (text[at - 1] == '\n' && (at == 1 || text[at - 2] != '\r')) return at;
  }
  return 0;
}

// Whether a text begins with the characters of `prefix`: an accent behind it would make its last
// character another one.
bool beginsWith(std::string_view text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  if (text.size() == prefix.size()) return true;
  text.remove_prefix(prefix.size());
  const auto following = static_cast<UChar32>(takeFirstScalar(text));
  const auto joins = u_getIntPropertyValue(following, UCHAR_GRAPHEME_CLUSTER_BREAK);
  return joins != U_GCB_EXTEND && joins != U_GCB_SPACING_MARK && joins != U_GCB_ZWJ;
}

bool isOneOf(const auto& table, std::string_view text) {
  return std::find(table.begin(), table.end(), text) != table.end();
}

}  // namespace

TerminalAgentScreenDetection TerminalAgentScreenRules::detect(TerminalAgentKind kind,
                                                              std::string_view screen) {
  if (kind == TerminalAgentKind::tesseral) return {};
  screen = lastCharacters(screen);
  bool approves = false;
  bool declines = false;
  bool asks = false;
  std::size_t lines = 0;
  for (std::size_t end = screen.size(); end > 0 && lines < maximumLines;) {
    const std::size_t start = startOfLine(screen, end);
    if (start < end) {
      const std::string_view line = trimmed(screen.substr(start, end - start));
      approves = approves || isOneOf(approveOptions, line);
      declines = declines || std::any_of(declineOptions.begin(), declineOptions.end(),
                                         [&](const char* option) { return beginsWith(line, option); });
      asks = asks || isOneOf(approvalQuestions, line);
      ++lines;
    }
    end = start == 0 ? 0 : start - 1;
  }
  if (!approves || !declines || !asks) return {};
  return {TerminalAgentActivity::blocked, TerminalAgentBlockReason::approval,
          TerminalAgentReason::screenApproval};
}

std::optional<TerminalAgentKind> TerminalAgentScreenRules::kind(std::string_view executable) {
  while (executable.ends_with('/')) executable.remove_suffix(1);
  return fromRawWord<TerminalAgentKind>(executable.substr(executable.rfind('/') + 1));
}

std::optional<TerminalAgentKind> TerminalAgentScreenRules::launchedKind(std::string_view command) {
  if (command.find_first_of(commandSeparators) != std::string_view::npos) return std::nullopt;
  const std::string_view program = takeWord(command);
  for (std::string_view word = program; !word.empty(); word = takeWord(command)) {
    if (isOneOf(informationArguments, word)) return std::nullopt;
  }
  return kind(program);
}

}  // namespace velotide
