#include "commands/command_info.h"

#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <string>

#include "base/bytes.h"

namespace velotide {

Uuid TerminalRuntimeCommandInfo::identity(const Uuid& generation, std::uint64_t markerOffset) {
  const std::string name = "velotide-command-v1:" + generation.text() + ":" + std::to_string(markerOffset);
  std::array<std::uint8_t, SHA256_DIGEST_LENGTH> digest;
  SHA256(bytesOf(name).data(), name.size(), digest.data());
  Uuid identity;
  std::copy_n(digest.begin(), identity.bytes.size(), identity.bytes.begin());
  return identity;
}

}  // namespace velotide
