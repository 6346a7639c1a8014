#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/time.h"
#include "base/uuid.h"

namespace velotide {

// Who may type into a session, and which input comes next. Free until an owner takes it for a limited time.
// Every passage to free begins a new epoch and restarts the input sequence, so that whoever prepared input
// before it is refused.
class ControlLease {
 public:
  // 1 to 128 printable ASCII characters.
  static bool isOwnerName(std::string_view name);

  const Uuid& epoch() const { return epoch_; }
  const std::optional<std::string>& owner() const { return owner_; }
  // For clients to see; `hasLapsed` decides.
  const std::optional<Date>& expiresAt() const { return expiresAt_; }
  std::uint64_t nextInputSequence() const { return nextInputSequence_; }

  bool hasLapsed(Uptime uptime) const { return owner_ && deadline_ <= uptime; }

  void take(const std::string& owner, Uptime uptime, Date now);
  // The same owner for another full length.
  void renew(Uptime uptime, Date now);
  void release();
  void consumeInputSequence();

 private:
  Uuid epoch_ = Uuid::random();
  std::optional<std::string> owner_;
  Uptime deadline_;
  std::optional<Date> expiresAt_;
  std::uint64_t nextInputSequence_ = 1;
};

}  // namespace velotide
