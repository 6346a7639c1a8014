#pragma once

#include "base/time.h"

namespace velotide {

// A clock that stands still until a test moves it. Both of its times move together.
class ManualClock final : public Clock {
 public:
  Date date() const override { return {786000000 + elapsed_}; }
  Uptime uptime() const override { return {1000 + elapsed_}; }
  void advance(Seconds length) { elapsed_ += length; }

 private:
  Seconds elapsed_ = 0;
};

}  // namespace velotide
