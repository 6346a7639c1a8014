#include "base/uuid.h"

#include "base/fatal.h"
#include "base/platform.h"

namespace velotide {

namespace {

constexpr std::string_view hexDigits = "0123456789ABCDEF";

constexpr bool hyphenBefore(std::size_t byte) { return byte == 4 || byte == 6 || byte == 8 || byte == 10; }

int hexValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  return -1;
}

}  // namespace

Uuid Uuid::random() {
  Uuid uuid;
  if (!platform::fillRandom(uuid.bytes)) fatal("no random numbers from the kernel");
  uuid.bytes[6] = static_cast<std::uint8_t>((uuid.bytes[6] & 0x0F) | 0x40);
  uuid.bytes[8] = static_cast<std::uint8_t>((uuid.bytes[8] & 0x3F) | 0x80);
  return uuid;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  Uuid uuid;
  std::size_t at = 0;
  for (std::size_t byte = 0; byte < uuid.bytes.size(); ++byte) {
    if (hyphenBefore(byte) && text[at++] != '-') return std::nullopt;
    const int high = hexValue(text[at++]);
    const int low = hexValue(text[at++]);
    if (high < 0 || low < 0) return std::nullopt;
    uuid.bytes[byte] = static_cast<std::uint8_t>(high * 16 + low);
  }
  return uuid;
}

std::string Uuid::text() const {
  std::string text(36, '-');
  std::size_t at = 0;
  for (std::size_t byte = 0; byte < bytes.size(); ++byte) {
    if (hyphenBefore(byte)) ++at;
    text[at++] = hexDigits[bytes[byte] >> 4];
    text[at++] = hexDigits[bytes[byte] & 0x0F];
  }
  return text;
}

}  // namespace velotide
