#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "end_to_end/printed_text.h"

// What the measured children print, and how the receiving end checks it. The stream of a printing child is
// the ready mark, then, once a byte of input gave the start, text that is known by its offset, then a trailer
// with the child's own clock readings at the start and at the end. Being at most a few KiB ahead of its
// reader, the child knows when everything was taken without anybody disturbing the reader to ask.
namespace velotide::bench {

constexpr std::string_view readyMark = "~go~";
constexpr std::string_view startByte = "s";
constexpr std::size_t trailerBytes = 32;

constexpr std::uint64_t streamBytes(std::uint64_t textBytes) {
  return readyMark.size() + textBytes + trailerBytes;
}

// Puts the terminal on standard input into raw mode, so that bytes pass it unchanged.
void makeTerminalRaw();

// Bodies of the children, run on a terminal of their own.
int printStream(std::uint64_t textBytes, PrintedText text);
int echoInput();

// Seconds the child spent printing, from the trailer that ends its stream.
double printingSeconds(std::string_view trailer);

// Checks the base64 batches of one stream byte for byte; throws when a byte differs. Bytes passed over by the
// sender are counted, not forgiven.
class StreamReceiver {
 public:
  // Comparing text with text costs a fraction of decoding it, and proves the same.
  enum class Check { decoded, encodedText };

  StreamReceiver(std::uint64_t textBytes, Check check, PrintedText text = PrintedText::lines)
      : textBytes_(textBytes), check_(check), text_(text) {}

  // `end` is the offset just behind the batch; absent where batches follow each other without saying so.
  void accept(std::string_view base64, std::optional<std::uint64_t> end);
  bool ready() const { return position_ >= readyMark.size(); }
  bool complete() const { return position_ == streamBytes(textBytes_); }
  std::uint64_t position() const { return position_; }
  std::uint64_t lostBytes() const { return lostBytes_; }
  double printingSeconds() const { return bench::printingSeconds(trailer_); }

 private:
  std::uint64_t textEnd() const { return readyMark.size() + textBytes_; }
  std::size_t acceptEncodedText(std::string_view base64, std::size_t count);
  void acceptBytes(std::string_view bytes);
  void requireSame(bool same) const;

  std::uint64_t textBytes_;
  Check check_;
  PrintedText text_;
  std::uint64_t position_ = 0;
  std::uint64_t lostBytes_ = 0;
  std::string trailer_;
  std::string scratch_;
};

}  // namespace velotide::bench
