#include "commands/command_info.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <string>

#include "base/fatal.h"

namespace velotide {

Uuid TerminalRuntimeCommandInfo::identity(const Uuid& generation, std::uint64_t markerOffset) {
  // Looking the algorithm up and making a context cost more than hashing such a short text.
  static const EVP_MD* const sha256 = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  static EVP_MD_CTX* const context = EVP_MD_CTX_new();
  const std::string name = "velotide-command-v1:" + generation.text() + ":" + std::to_string(markerOffset);
  std::array<std::uint8_t, EVP_MAX_MD_SIZE> digest;
  if (EVP_DigestInit_ex2(context, sha256, nullptr) != 1 ||
      EVP_DigestUpdate(context, name.data(), name.size()) != 1 ||
      EVP_DigestFinal_ex(context, digest.data(), nullptr) != 1) {
    fatal("no SHA-256");
  }
  Uuid identity;
  std::copy_n(digest.begin(), identity.bytes.size(), identity.bytes.begin());
  return identity;
}

}  // namespace velotide
