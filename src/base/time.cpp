#include "base/time.h"

#include <ctime>

#include "base/platform.h"

namespace velotide {

namespace {

Seconds read(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<Seconds>(now.tv_sec) + static_cast<Seconds>(now.tv_nsec) * 1e-9;
}

}  // namespace

Date SystemClock::date() const { return {read(CLOCK_REALTIME) - Date::unixReference}; }

Uptime SystemClock::uptime() const { return {read(platform::uptimeClock)}; }

}  // namespace velotide
