#include "commands/command_info.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <string>

#include "base/fatal.h"

namespace velotide {

Uuid TerminalRuntimeCommandInfo::identity(const Uuid& generation, std::uint64_t markerOffset) {
  // Looking the algorithm up costs more than hashing such a short text.
  static const EVP_MD* const sha256 = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  const std::string name = "velotide-command-v1:" + generation.text() + ":" + std::to_string(markerOffset);
  std::array<std::uint8_t, EVP_MAX_MD_SIZE> digest;
  if (EVP_Digest(name.data(), name.size(), digest.data(), nullptr, sha256, nullptr) != 1) {
    fatal("no SHA-256");
  }
  Uuid identity;
  std::copy_n(digest.begin(), identity.bytes.size(), identity.bytes.begin());
  return identity;
}

}  // namespace velotide
