#pragma once

#include <optional>
#include <string>

#include "base/byte_queue.h"
#include "base/record.h"
#include "client/trouble.h"

namespace velotide::client {

// The content of a file of this user's that is closed to others, read without following a link and checked on
// the open descriptor. Nothing when there is no such file; throws Trouble when it is not to be trusted or
// longer than `limit`.
inline constexpr std::size_t maximumPrivateBytes = 131072;
std::optional<ByteQueue> readPrivateFile(const std::string& path, std::size_t limit = maximumPrivateBytes);

// The record that such a file holds. Throws Trouble when it holds something else.
template <Record T>
std::optional<T> readPrivateRecord(const std::string& path) {
  std::optional<ByteQueue> content = readPrivateFile(path);
  if (!content) return std::nullopt;
  JsonDocument document;
  std::optional<T> record;
  if (!content->empty()) record = decodeText<T>(document, content->mutableText());
  if (!record) throw Trouble(path + " does not hold what it should. Remove it.");
  return record;
}

}  // namespace velotide::client
