#pragma once

#include <cstdint>
#include <string_view>

namespace velotide::bench {

// What a printing child prints, repeated without end and therefore known by its offset: plain lines as of a
// build, or the screen of an agent that is drawn again and again, with colours, moves of the cursor and
// characters of several bytes.
enum class PrintedText { lines, screens };

// After which a text begins again; a screen is whole there.
constexpr std::uint64_t printedPeriod = 98304;
constexpr std::size_t largestPrinted = 65536;

// `count` is at most `largestPrinted`.
std::string_view printedAt(PrintedText text, std::uint64_t offset, std::size_t count);
// The base64 text of `length` characters that stands for the bytes from `offset` on.
std::string_view printedBase64At(PrintedText text, std::uint64_t offset, std::size_t length);

std::string_view nameOf(PrintedText text);
PrintedText printedTextNamed(std::string_view name);

}  // namespace velotide::bench
