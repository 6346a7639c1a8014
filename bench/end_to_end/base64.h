#pragma once

#include <span>
#include <string>
#include <string_view>

namespace velotide::bench {

// Space that the text of `count` bytes needs, with the zero that libcrypto puts behind it.
constexpr std::size_t base64Space(std::size_t count) { return (count + 2) / 3 * 4 + 1; }

// Encodes into `text`, which holds base64Space(bytes.size()); answers the length without the zero.
std::size_t encodeBase64(std::string_view bytes, std::span<char> text);
std::string encodeBase64(std::string_view bytes);

// Number of bytes that padded base64 text stands for.
std::size_t base64Length(std::string_view text);

// Decodes into `scratch`, which grows as needed, and answers a view into it; throws on malformed text.
std::string_view decodeBase64(std::string_view text, std::string& scratch);

}  // namespace velotide::bench
