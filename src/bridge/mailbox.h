#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "base/byte_queue.h"
#include "base/json_document.h"
#include "base/time.h"
#include "bridge/directory_walk.h"
#include "bridge/native_messages.h"

namespace velotide {

// The files of the mailbox: takes requests out of "requests" and puts responses into "responses", both under
// one root that belongs to the user alone. Whatever lies in these directories may be hostile: nothing in them
// is followed, waited for or believed before it is known to be a private file of the user, and every pass
// looks at a bounded number of entries.
class Mailbox {
 public:
  // Requests examined in one pass, and responses.
  static constexpr std::size_t requestEntries = 16;
  static constexpr std::size_t responseEntries = 32;
  // A response is removed at this age, or when this many newer ones have been written.
  static constexpr Seconds responseAge = 300;
  static constexpr std::size_t rememberedResponses = 256;
  // More leftovers of an earlier run than this in one directory are not worth starting on.
  static constexpr std::size_t maximumLeftovers = 1024;

  // Creates the directories and clears what an earlier run left in them. Throws Failure<RuntimeFailure> when
  // they are not private or hold too much, SystemFailure when they cannot be created.
  explicit Mailbox(const std::string& root);

  // Beside the two directories. Throws SystemFailure.
  void writeMetadata(const RuntimeReadOnlyMetadata& metadata);

  // One pass over the requests. Every request file that is examined is removed; those that hold a request
  // under its own name are handed to `perform`, after the removal, so that none is ever performed twice.
  using Perform = std::function<void(const RuntimeNativeRequest&)>;
  void takeRequests(const Perform& perform);

  // False when the response could not be encoded or written; nothing is then left behind.
  bool writeResponse(const RuntimeNativeResponse& response);

  // One pass over the responses for those that nobody collected. Rounds begin a second apart, so that a turn
  // of the loop hardly ever pays for them.
  void removeOldResponses(Date now);

 private:
  static constexpr Seconds cleanupPause = 1;

  std::optional<RuntimeNativeRequest> take(const char* name);
  bool read(const char* name);

  const std::string root_;
  DirectoryWalk requests_;
  DirectoryWalk responses_;
  // Names of the responses written by this run, oldest first.
  std::deque<std::string> responseOrder_;
  Date cleanedAt_;
  ByteQueue incoming_;
  ByteQueue outgoing_;
  JsonDocument document_;
};

}  // namespace velotide
