#include "end_to_end/stream.h"

#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>

#include "end_to_end/base64.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

constexpr std::size_t lineBytes = 64;
// Divisible by three, so that its base64 text repeats as it does.
constexpr std::size_t period = 1536 * lineBytes;
constexpr std::size_t largestBatch = 65536;

std::string makeText() {
  std::string text;
  for (std::size_t line = 0; text.size() < period + largestBatch + 3; ++line) {
    std::string row =
        "line " + std::to_string(line % (period / lineBytes) + 10000) + " of what a child prints";
    row.resize(lineBytes - 1, '.');
    text += row + "\n";
  }
  return text;
}

// The text from `offset` on, wherever that is in the endless repetition.
std::string_view textAt(std::uint64_t offset, std::size_t count) {
  static const std::string text = makeText();
  return std::string_view(text).substr(offset % period, count);
}

// The base64 text of the endless text from `offset` on.
std::string_view encodedTextAt(std::uint64_t offset, std::size_t length) {
  static const std::array<std::string, 3> phases{encodeBase64(textAt(0, period + largestBatch)),
                                                 encodeBase64(textAt(1, period + largestBatch)),
                                                 encodeBase64(textAt(2, period + largestBatch))};
  const std::size_t begin = offset % period;
  return std::string_view(phases[begin % 3]).substr(begin / 3 * 4, length);
}

std::string clockStamp() {
  std::array<char, 16> digits{};
  const auto nanoseconds = static_cast<std::uint64_t>(Clock::now().time_since_epoch().count());
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), nanoseconds, 16).ptr;
  const std::string number(digits.data(), end);
  return std::string(16 - number.size(), '0') + number;
}

}  // namespace

void makeTerminalRaw() {
  termios attributes{};
  if (::tcgetattr(STDIN_FILENO, &attributes) != 0) failWithErrno("terminal attributes");
  ::cfmakeraw(&attributes);
  if (::tcsetattr(STDIN_FILENO, TCSANOW, &attributes) != 0) failWithErrno("terminal attributes");
}

int printStream(std::uint64_t textBytes) {
  makeTerminalRaw();
  writeAll(STDOUT_FILENO, readyMark);
  std::array<char, 64> input{};
  if (readSome(STDIN_FILENO, input) == 0) return 1;
  const std::string started = clockStamp();
  for (std::uint64_t offset = 0; offset < textBytes;) {
    const auto count = std::min<std::uint64_t>(largestBatch, textBytes - offset);
    writeAll(STDOUT_FILENO, textAt(offset, count));
    offset += count;
  }
  writeAll(STDOUT_FILENO, started + clockStamp());
  while (readSome(STDIN_FILENO, input) > 0) {
  }
  return 0;
}

int echoInput() {
  makeTerminalRaw();
  writeAll(STDOUT_FILENO, readyMark);
  std::array<char, 4096> input{};
  while (const std::size_t count = readSome(STDIN_FILENO, input)) {
    writeAll(STDOUT_FILENO, std::string_view(input.data(), count));
  }
  return 0;
}

double printingSeconds(std::string_view trailer) {
  if (trailer.size() != trailerBytes) throw std::runtime_error("the stream ended without its trailer");
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
  std::from_chars(trailer.data(), trailer.data() + 16, begin, 16);
  std::from_chars(trailer.data() + 16, trailer.data() + 32, end, 16);
  return static_cast<double>(end - begin) / static_cast<double>(Clock::period::den);
}

void StreamReceiver::accept(std::string_view base64, std::optional<std::uint64_t> end) {
  const std::size_t count = base64Length(base64);
  const std::uint64_t begin = end ? *end - count : position_;
  if (begin < position_) throw std::runtime_error("output arrived twice");
  lostBytes_ += begin - position_;
  position_ = begin;
  if (check_ == Check::encodedText) base64.remove_prefix(acceptEncodedText(base64, count));
  acceptBytes(decodeBase64(base64, scratch_));
}

// Takes what stands for whole groups of three bytes, if all of the batch is text; answers how many
// characters.
std::size_t StreamReceiver::acceptEncodedText(std::string_view base64, std::size_t count) {
  if (!ready() || position_ + count > textEnd()) return 0;
  const std::size_t characters = count / 3 * 4;
  requireSame(base64.substr(0, characters) == encodedTextAt(position_ - readyMark.size(), characters));
  position_ += count / 3 * 3;
  return characters;
}

void StreamReceiver::acceptBytes(std::string_view bytes) {
  while (!bytes.empty() && position_ < textEnd()) {
    const std::string_view expected =
        ready() ? textAt(position_ - readyMark.size(),
                         std::min<std::uint64_t>(largestBatch, textEnd() - position_))
                : readyMark.substr(position_);
    const std::size_t count = std::min(bytes.size(), expected.size());
    requireSame(bytes.substr(0, count) == expected.substr(0, count));
    bytes.remove_prefix(count);
    position_ += count;
  }
  trailer_ += bytes;
  position_ += bytes.size();
}

void StreamReceiver::requireSame(bool same) const {
  if (!same) throw std::runtime_error("output differs from what was printed at " + std::to_string(position_));
}

}  // namespace velotide::bench
