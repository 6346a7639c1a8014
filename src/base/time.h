#pragma once

#include <compare>

namespace velotide {

// Lengths of time are seconds with fraction everywhere.
using Seconds = double;

// A wall-clock instant as clients see it: seconds since 2001-01-01 00:00:00 UTC. Decides only
// what records themselves date.
struct Date {
  Seconds sinceReference = 0;

  friend Date operator+(Date date, Seconds length) { return {date.sinceReference + length}; }
  friend Seconds operator-(Date later, Date earlier) { return later.sinceReference - earlier.sinceReference; }
  auto operator<=>(const Date&) const = default;

  // Seconds from 1970-01-01 to the reference date.
  static constexpr Seconds unixReference = 978307200;
};

// A monotonic instant, seconds since boot: decides every other deadline and every lease, and is never
// shown.
struct Uptime {
  Seconds sinceBoot = 0;

  friend Uptime operator+(Uptime instant, Seconds length) { return {instant.sinceBoot + length}; }
  friend Seconds operator-(Uptime later, Uptime earlier) { return later.sinceBoot - earlier.sinceBoot; }
  auto operator<=>(const Uptime&) const = default;
};

// Where the service, its sessions and the attention store read time; everything below takes instants as
// arguments.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual Date date() const = 0;
  virtual Uptime uptime() const = 0;
};

class SystemClock final : public Clock {
 public:
  Date date() const override;
  Uptime uptime() const override;
};

}  // namespace velotide
