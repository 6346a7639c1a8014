#include "client/plain_input.h"

namespace velotide::client {

namespace {

constexpr char endOfFile = '\x04';
constexpr char quote = '\x16';

bool needsQuote(char byte) {
  const auto value = static_cast<unsigned char>(byte);
  return (value < 0x20 && byte != '\n' && byte != '\t') || value == 0x7f;
}

}  // namespace

std::string PlainInput::encode(std::string_view data) {
  std::string keys;
  keys.reserve(data.size() + 16);
  for (const char byte : data) {
    // Typed in a line that has begun, the end of file only hands over what was gathered.
    if (gathered_ == longestPart && byte != '\n') {
      keys += endOfFile;
      gathered_ = 0;
    }
    if (needsQuote(byte)) keys += quote;
    keys += byte;
    gathered_ = byte == '\n' ? 0 : gathered_ + 1;
  }
  return keys;
}

std::string PlainInput::end() const { return std::string(gathered_ == 0 ? 1 : 2, endOfFile); }

}  // namespace velotide::client
