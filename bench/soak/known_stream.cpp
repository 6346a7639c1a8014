#include "soak/known_stream.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace velotide::bench {
namespace {

using Record = std::array<char, KnownStream::recordBytes>;

constexpr std::uint64_t step = 0x9E3779B97F4A7C15;
// Records from the start of one command to the start of the next, and the places between.
constexpr std::uint64_t commandRecords = 8;
constexpr std::uint64_t bellRecord = 3;
constexpr std::uint64_t endRecord = 6;

// A counter becomes a number without pattern: every step of this is reversible and spreads each bit.
std::uint64_t scrambled(std::uint64_t counter) {
  counter = (counter ^ (counter >> 30)) * 0xBF58476D1CE4E5B9;
  counter = (counter ^ (counter >> 27)) * 0x94D049BB133111EB;
  return counter ^ (counter >> 31);
}

std::uint64_t numberAt(std::uint64_t seed, std::uint64_t index) { return scrambled(seed + index * step); }

char* writeHex(char* out, std::uint64_t number, int digits) {
  for (int digit = digits - 1; digit >= 0; --digit) *out++ = "0123456789abcdef"[(number >> (4 * digit)) & 15];
  return out;
}

// Seed and index, letters and a line feed.
void writeText(std::uint64_t seed, std::uint64_t index, Record& record) {
  char* out = writeHex(record.data(), seed, 16);
  *out++ = ' ';
  out = writeHex(out, index, 12);
  *out++ = ' ';
  std::uint64_t number = numberAt(seed, index);
  for (char* const end = record.data() + record.size() - 1; out != end; ++out) {
    *out = static_cast<char>('a' + (number & 15));
    number = (number >> 4) | (number << 60);
  }
  *out = '\n';
}

void writeBinary(std::uint64_t seed, std::uint64_t index, Record& record) {
  for (std::size_t block = 0; block < record.size() / 8; ++block) {
    const std::uint64_t number = numberAt(seed, index * (record.size() / 8) + block);
    char* const out = record.data() + block * 8;
    for (int byte = 0; byte < 8; ++byte) out[byte] = static_cast<char>(number >> (8 * byte));
  }
}

std::string_view shellBeginning(std::uint64_t seed, std::uint64_t index) {
  switch (index % commandRecords) {
    case 0:
      return "\x1b]777;Velotide;start=6d616b6520616c6c\x1b\\";
    case bellRecord:
      return "\a";
    case endRecord:
      return numberAt(seed, index) % 2 == 0 ? "\x1b]777;Velotide;end=0\x1b\\" : "\x1b]777;Velotide;end=2\a";
    default:
      return index % 2 == 0 ? "\x1b[31merror: \x1b[0m" : "\x1b[1;2Hnote: ";
  }
}

void writeShell(std::uint64_t seed, std::uint64_t index, Record& record) {
  writeText(seed, index, record);
  const std::string_view beginning = shellBeginning(seed, index);
  std::memcpy(record.data(), beginning.data(), beginning.size());
}

void writeRecord(const KnownStream& stream, std::uint64_t index, Record& record) {
  switch (stream.dialect) {
    case KnownStream::Dialect::text:
      return writeText(stream.seed, index, record);
    case KnownStream::Dialect::binary:
      return writeBinary(stream.seed, index, record);
    case KnownStream::Dialect::shell:
      return writeShell(stream.seed, index, record);
  }
}

}  // namespace

void KnownStream::copy(std::uint64_t offset, std::span<char> into) const {
  Record record;
  while (!into.empty()) {
    writeRecord(*this, offset / recordBytes, record);
    const std::size_t skipped = offset % recordBytes;
    const std::size_t count = std::min(recordBytes - skipped, into.size());
    std::memcpy(into.data(), record.data() + skipped, count);
    into = into.subspan(count);
    offset += count;
  }
}

std::string KnownStream::at(std::uint64_t offset, std::size_t count) const {
  std::string bytes(count, '\0');
  copy(offset, bytes);
  return bytes;
}

}  // namespace velotide::bench
