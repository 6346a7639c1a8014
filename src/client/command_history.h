#pragma once

#include <functional>
#include <vector>

#include "client/session_journal.h"

namespace velotide::client {

// Follows the commands of one session from description to description, each of which names the latest only.
class CommandHistory {
 public:
  using Records = std::vector<KnownCommand>;

  // Answers what is new or has changed, oldest first: `latest` as the service describes it, and before that
  // what it no longer names, which `older` finds behind an offset and before another.
  Records take(const Uuid& generation, const std::vector<TerminalRuntimeCommandInfo>& latest,
               const std::function<Records(std::uint64_t from, std::uint64_t to)>& older);

 private:
  void add(const KnownCommand& command, Records& changed);

  Uuid generation_;
  bool hasBegun_ = false;
  // The newest that was told.
  std::optional<KnownCommand> newest_;
};

}  // namespace velotide::client
