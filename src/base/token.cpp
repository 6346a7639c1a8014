#include "base/token.h"

#include <openssl/crypto.h>

#include "base/uuid.h"

namespace velotide {

std::string makeToken() { return Uuid::random().text() + Uuid::random().text(); }

bool equalInConstantTime(std::string_view one, std::string_view other) {
  return one.size() == other.size() && CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

}  // namespace velotide
