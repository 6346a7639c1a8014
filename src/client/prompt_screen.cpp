#include "client/prompt_screen.h"

#include <algorithm>
#include <variant>

namespace velotide::client {

namespace {

// What prompts end with, followed by a blank.
constexpr std::u32string_view signs = U"$%#>❯»›λ➜▶⟩→";
constexpr char32_t unbreakableBlank = 0xA0;

bool isBlank(char32_t character) { return character == U' ' || character == unbreakableBlank; }

bool isSignAt(std::u32string_view line, std::size_t at) {
  return signs.find(line[at]) != std::u32string_view::npos &&
         (at + 1 == line.size() || isBlank(line[at + 1]));
}

std::size_t countSigns(std::u32string_view line) {
  std::size_t count = 0;
  for (std::size_t at = 0; at < line.size(); ++at) count += isSignAt(line, at) ? 1 : 0;
  return count;
}

bool isAllBlank(std::u32string_view line) { return std::all_of(line.begin(), line.end(), isBlank); }

// A prompt's sign and one blank.
bool endsWithSign(std::u32string_view line) {
  return line.size() >= 2 && isBlank(line.back()) && isSignAt(line, line.size() - 2);
}

// A prompt on the right stands apart from the cursor; what is typed behind it does not.
bool isApart(std::u32string_view line) {
  constexpr std::size_t distance = 2;
  return isAllBlank(line.substr(0, distance));
}

}  // namespace

void PromptScreen::take(ByteView bytes, std::uint64_t offset) {
  const auto sequence = [this](std::string_view whole) { take(whole); };
  const auto text = [this](std::string_view shown) { show(shown); };
  std::size_t done = 0;
  for (const TerminalLocatedShellEvent& located : parser_.acceptLocated(bytes, offset)) {
    const std::size_t end = located.endOffset - offset;
    scanner_.scan(textOf(bytes.subspan(done, end - done)), text, sequence);
    done = end;
    apply(located.event);
    clear();
  }
  scanner_.scan(textOf(bytes.subspan(done)), text, sequence);
}

void PromptScreen::clear() {
  rows_.assign(1, {});
  row_ = column_ = 0;
  isLost_ = isGivenUp_ = isReversed_ = false;
}

void PromptScreen::take(std::string_view sequence) {
  if (const auto parsed = ControlSequence::parse(sequence)) {
    control(*parsed);
  } else if (sequence ==
                 "\x1b"
                 "8" ||
             sequence == "\x1bM") {
    isLost_ = true;
  }
}

void PromptScreen::apply(const TerminalShellIntegrationEvent& event) {
  if (std::holds_alternative<TerminalShellCommandStarted>(event))
    phase_ = Phase::running;
  else if (std::holds_alternative<TerminalShellCommandFinished>(event))
    phase_ = Phase::ended;
  else if (phase_ != Phase::running)
    phase_ = Phase::prompt;
  if (const auto* detected = std::get_if<TerminalShellDetected>(&event)) shell_ = detected->name;
}

bool PromptScreen::isEmptyPrompt() const {
  if (phase_ != Phase::prompt || isLost_) return false;
  const std::u32string_view line = rows_[row_];
  const std::size_t cursor = std::min(column_, line.size());
  if (column_ > line.size()) return false;
  std::size_t seen = countSigns(line.substr(0, cursor));
  for (std::size_t index = 0; index < rows_.size(); ++index) {
    if (index < row_) seen += countSigns(rows_[index]);
    if (index > row_ && !isAllBlank(rows_[index])) return false;
  }
  return seen == 1 && endsWithSign(line.substr(0, cursor)) && isApart(line.substr(cursor));
}

std::u32string& PromptScreen::row() {
  std::u32string& line = rows_[row_];
  if (line.size() < column_) line.resize(column_, U' ');
  return line;
}

void PromptScreen::show(std::string_view text) {
  if (isReversed_ && text == "^C" && shell_ == "fish") isGivenUp_ = true;
  for (const char byte : text) {
    const auto value = static_cast<unsigned char>(byte);
    if (value >= 0x80 && value < 0xC0) {
      character_ = character_ << 6 | (value & 0x3F);
      if (missingBytes_ == 0 || --missingBytes_ > 0) continue;
    } else if (value >= 0xC0) {
      missingBytes_ = value >= 0xF0 ? 3 : value >= 0xE0 ? 2 : 1;
      character_ = value & (0x3F >> missingBytes_);
      continue;
    } else {
      character_ = value;
    }
    if (character_ == '\r') {
      column_ = 0;
    } else if (character_ == '\b') {
      moveColumn(-1);
    } else if (character_ == '\n') {
      if (isGivenUp_) clear();
      moveRow(1);
    } else if (character_ == '\t') {
      column_ = std::min(column_ / 8 * 8 + 8, maximumColumns);
    } else if (character_ >= ' ' && character_ != 0x7F && column_ < maximumColumns) {
      std::u32string& line = row();
      if (column_ < line.size())
        line[column_] = character_;
      else
        line.push_back(character_);
      ++column_;
    }
  }
}

void PromptScreen::moveColumn(long by) {
  const long column = static_cast<long>(column_) + by;
  column_ = static_cast<std::size_t>(std::clamp(column, 0L, static_cast<long>(maximumColumns)));
}

void PromptScreen::moveRow(long by) {
  const long wanted = std::clamp(static_cast<long>(row_) + by, 0L, static_cast<long>(maximumRows));
  row_ = static_cast<std::size_t>(wanted);
  if (rows_.size() <= row_) rows_.resize(row_ + 1);
}

void PromptScreen::erase(std::size_t from, std::size_t to) {
  std::u32string& line = row();
  if (to >= line.size())
    line.resize(std::min(from, line.size()));
  else
    std::fill(line.begin() + static_cast<long>(from), line.begin() + static_cast<long>(to), U' ');
}

void PromptScreen::control(const ControlSequence& sequence) {
  if (sequence.prefix == '?') {
    const auto& modes = sequence.parameters;
    const bool isPaste = std::find(modes.begin(), modes.end(), 2004) != modes.end();
    if (isPaste && (sequence.final == 'h' || sequence.final == 'l')) takesPaste_ = sequence.final == 'h';
    return;
  }
  if (sequence.prefix != 0 || !sequence.intermediates.empty()) return;
  const int count = sequence.parameter(0, 1);
  const int kind = sequence.parameter(0, 0);
  switch (sequence.final) {
    case 'm':
      isReversed_ = kind == 7;
      return;
    case 'A':
      return moveRow(-count);
    case 'B':
      return moveRow(count);
    case 'C':
      return moveColumn(count);
    case 'D':
      return moveColumn(-count);
    case 'G':
      column_ = 0;
      return moveColumn(count - 1);
    case 'H':
      // To the top, as when the screen is cleared.
      isLost_ = isLost_ || !sequence.parameters.empty();
      row_ = column_ = 0;
      return;
    case 'J':
      if (kind == 0) rows_.resize(row_ + 1);
      if (kind >= 2) rows_.assign(row_ + 1, {});
      if (kind == 0) erase(column_, std::u32string::npos);
      return;
    case 'K':
      return erase(kind == 0 ? column_ : 0, kind == 1 ? column_ + 1 : std::u32string::npos);
    case 'P': {
      std::u32string& line = row();
      line.erase(column_, static_cast<std::size_t>(count));
      return;
    }
    case '@':
      if (static_cast<std::size_t>(count) < maximumColumns)
        row().insert(column_, static_cast<std::size_t>(count), U' ');
      // What is pushed out behind the last column is gone.
      if (row().size() > maximumColumns) row().resize(maximumColumns);
      return;
    default:
      // Of those that do not move the cursor or the text, the ones that occur in prompts.
      isLost_ = isLost_ || std::string_view("hlnctq").find(sequence.final) == std::string_view::npos;
  }
}

}  // namespace velotide::client
