#include "base/base64.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>

namespace velotide {

namespace {

void appendBlock(ByteQueue& out, ByteView bytes) {
  if (bytes.empty()) return;
  // The library writes a terminating zero behind its text.
  const std::size_t length = (bytes.size() + 2) / 3 * 4;
  EVP_EncodeBlock(out.reserve(length + 1).data(), bytes.data(), static_cast<int>(bytes.size()));
  out.commit(length);
}

}  // namespace

void appendBase64(ByteQueue& out, const CarriedBytes& bytes) {
  const ByteView head = bytes.head();
  ByteView tail = bytes.tail();
  const std::size_t whole = head.size() / 3 * 3;
  appendBlock(out, head.first(whole));

  // The group of three bytes that lies across the two pieces.
  std::array<std::uint8_t, 3> seam{};
  std::size_t held = head.size() - whole;
  std::copy(head.begin() + static_cast<std::ptrdiff_t>(whole), head.end(), seam.begin());
  if (held > 0) {
    const std::size_t taken = std::min(seam.size() - held, tail.size());
    std::copy_n(tail.begin(), taken, seam.begin() + static_cast<std::ptrdiff_t>(held));
    appendBlock(out, ByteView(seam).first(held + taken));
    tail = tail.subspan(taken);
  }
  appendBlock(out, tail);
}

std::optional<Bytes> decodeBase64(std::string_view text) {
  if (text.empty()) return Bytes{};
  if (text.size() % 4 != 0) return std::nullopt;
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  // The library takes "=" for a zero digit wherever it stands and trims white space at both ends.
  if (text.find('=') < text.size() - padding) return std::nullopt;

  Bytes bytes(text.size() / 4 * 3);
  const ByteView digits = bytesOf(text);
  const int decoded = EVP_DecodeBlock(bytes.data(), digits.data(), static_cast<int>(digits.size()));
  if (decoded < 0 || static_cast<std::size_t>(decoded) != bytes.size()) return std::nullopt;
  bytes.resize(bytes.size() - padding);
  return bytes;
}

}  // namespace velotide
