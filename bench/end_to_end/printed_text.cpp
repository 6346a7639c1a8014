#include "end_to_end/printed_text.h"

#include <array>
#include <stdexcept>
#include <string>

#include "end_to_end/base64.h"

namespace velotide::bench {
namespace {

// The base64 text of a text repeats as the text does.
static_assert(printedPeriod % 3 == 0);
static_assert(printedPeriod > largestPrinted + 3);

std::string makeLines() {
  constexpr std::size_t lineBytes = 64;
  static_assert(printedPeriod % lineBytes == 0);
  std::string text;
  for (std::size_t line = 10000; text.size() < printedPeriod; ++line) {
    std::string row = "line " + std::to_string(line) + " of what a child prints";
    row.resize(lineBytes - 1, '.');
    text += row + "\n";
  }
  return text;
}

std::string repeated(std::string_view text, std::size_t count) {
  std::string whole;
  for (std::size_t index = 0; index < count; ++index) whole += text;
  return whole;
}

std::string coloured(std::size_t colour, const std::string& text) {
  return "\x1b[38;5;" + std::to_string(colour % 256) + "m" + text + "\x1b[0m";
}

// A line of a change to a program, in the colours of its language.
std::string changedLine(std::size_t number) {
  const bool isAdded = number % 3 != 0;
  return coloured(240, std::to_string(number)) + coloured(isAdded ? 34 : 124, isAdded ? " + " : " - ") +
         coloured(75, "const") + " " + coloured(180, "auto") + " value" + std::to_string(number) + " = " +
         coloured(222, "compute") + "(" + coloured(114, "\"" + std::to_string(number * 7) + "\"") + ");";
}

std::string makeScreen(std::size_t number) {
  std::string screen = "\x1b[?2026h\x1b[H";
  const auto row = [&screen](std::size_t index, const std::string& text) {
    screen += "\x1b[" + std::to_string(index) + ";1H" + text + "\x1b[K";
  };
  row(1, coloured(173, "●") + " \x1b[1mUpdate\x1b[0m(src/ledger.cpp)");
  row(2, "  ⎿  Updated with " + std::to_string(number % 50) + " additions");
  for (std::size_t index = 3; index <= 18; ++index) row(index, "     " + changedLine(number * 16 + index));
  row(19, coloured(173 + number % 6, "✻ Thinking… (" + std::to_string(number) + "s · esc to interrupt)"));
  row(20, coloured(240, "╭" + repeated("─", 76) + "╮"));
  row(21, coloured(240, "│") + " > \x1b[7m \x1b[0m\x1b[78G" + coloured(240, "│"));
  row(22, coloured(240, "╰" + repeated("─", 76) + "╯"));
  row(23, "  ? for shortcuts");
  row(24, "");
  return screen + "\x1b[?2026l";
}

std::string makeScreens() {
  std::string text;
  for (std::size_t number = 0;; ++number) {
    const std::string screen = makeScreen(number);
    if (text.size() + screen.size() > printedPeriod) break;
    text += screen;
  }
  // Fills up without leaving a mark: the cursor is in the first column.
  text.resize(printedPeriod, '\r');
  return text;
}

struct Repetition {
  explicit Repetition(const std::string& once) : plain(once + once.substr(0, largestPrinted + 3)) {
    const std::string_view all = plain;
    for (std::size_t phase = 0; phase < base64.size(); ++phase) {
      base64[phase] = encodeBase64(all.substr(phase, printedPeriod + largestPrinted));
    }
  }

  std::string plain;
  std::array<std::string, 3> base64;
};

const Repetition& repetitionOf(PrintedText text) {
  static const Repetition lines(makeLines());
  static const Repetition screens(makeScreens());
  return text == PrintedText::lines ? lines : screens;
}

}  // namespace

std::string_view printedAt(PrintedText text, std::uint64_t offset, std::size_t count) {
  return std::string_view(repetitionOf(text).plain).substr(offset % printedPeriod, count);
}

std::string_view printedBase64At(PrintedText text, std::uint64_t offset, std::size_t length) {
  const std::size_t begin = offset % printedPeriod;
  return std::string_view(repetitionOf(text).base64[begin % 3]).substr(begin / 3 * 4, length);
}

std::string_view nameOf(PrintedText text) { return text == PrintedText::lines ? "lines" : "screens"; }

PrintedText printedTextNamed(std::string_view name) {
  for (const PrintedText text : {PrintedText::lines, PrintedText::screens}) {
    if (nameOf(text) == name) return text;
  }
  throw std::runtime_error("no text is called " + std::string(name));
}

}  // namespace velotide::bench
