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

int printStream(std::uint64_t textBytes, PrintedText text) {
  makeTerminalRaw();
  writeAll(STDOUT_FILENO, readyMark);
  std::array<char, 64> input{};
  if (readSome(STDIN_FILENO, input) == 0) return 1;
  const std::string started = clockStamp();
  for (std::uint64_t offset = 0; offset < textBytes;) {
    const auto count = std::min<std::uint64_t>(largestPrinted, textBytes - offset);
    writeAll(STDOUT_FILENO, printedAt(text, offset, count));
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
  requireSame(base64.substr(0, characters) ==
              printedBase64At(text_, position_ - readyMark.size(), characters));
  position_ += count / 3 * 3;
  return characters;
}

void StreamReceiver::acceptBytes(std::string_view bytes) {
  while (!bytes.empty() && position_ < textEnd()) {
    const std::string_view expected =
        ready() ? printedAt(text_, position_ - readyMark.size(),
                            std::min<std::uint64_t>(largestPrinted, textEnd() - position_))
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
