#include "end_to_end/base64.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace velotide::bench {
namespace {

const unsigned char* bytesOf(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

std::size_t encodeBase64(std::string_view bytes, std::span<char> text) {
  const int length = ::EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytesOf(bytes),
                                       static_cast<int>(bytes.size()));
  return static_cast<std::size_t>(length);
}

std::string encodeBase64(std::string_view bytes) {
  std::string text(base64Space(bytes.size()), '\0');
  text.resize(encodeBase64(bytes, std::span<char>(text)));
  return text;
}

std::size_t base64Length(std::string_view text) {
  std::size_t padding = 0;
  while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
  return text.size() / 4 * 3 - padding;
}

std::string_view decodeBase64(std::string_view text, std::string& scratch) {
  if (scratch.size() < text.size()) scratch.resize(text.size());
  const int length = ::EVP_DecodeBlock(reinterpret_cast<unsigned char*>(scratch.data()), bytesOf(text),
                                       static_cast<int>(text.size()));
  if (length < 0 || text.size() % 4 != 0) throw std::runtime_error("output that is not base64");
  return std::string_view(scratch).substr(0, base64Length(text));
}

}  // namespace velotide::bench
