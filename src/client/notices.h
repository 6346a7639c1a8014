#pragma once

#include <string>
#include <string_view>

#include "base/time.h"

namespace velotide::client {

// What is said to the person, on standard error, so that standard output carries results alone.
class Notices {
 public:
  explicit Notices(bool quiet = false) : quiet_(quiet) {}

  bool isQuiet() const { return quiet_; }
  // Unless quiet.
  void note(std::string_view text) const;
  // Always.
  void error(std::string_view text) const;

 private:
  bool quiet_;
};

// A bounded wait that says what it waits for once it takes long. Asking `isSpent` is what makes it speak.
class Patience {
 public:
  // `notices` must outlive it; `what` completes "waiting for …".
  Patience(const Notices& notices, std::string what, Seconds limit);

  bool isSpent();
  Seconds left() const;
  // Sleeps a little, longer each time, never past the limit.
  void pause();

 private:
  static constexpr Seconds silence = 1;

  const Notices& notices_;
  std::string what_;
  Uptime begin_;
  Seconds limit_;
  Seconds step_ = 0.001;
  bool hasSpoken_ = false;
};

Uptime now();

// Waits until one of the poll(2) `events` holds on `descriptor`. False when `limit` passed first.
bool waitFor(int descriptor, short events, Seconds limit);

}  // namespace velotide::client
