#include <libproc.h>
#include <mach/mach_time.h>
#include <util.h>

#include <vector>

#include "end_to_end/platform.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

rusage_info_v2 usageOf(pid_t process) {
  rusage_info_v2 usage{};
  if (::proc_pid_rusage(process, RUSAGE_INFO_V2, reinterpret_cast<rusage_info_t*>(&usage)) != 0) {
    failWithErrno("resource usage of a process");
  }
  return usage;
}

}  // namespace

double processorSeconds(pid_t process) {
  mach_timebase_info_data_t base{};
  ::mach_timebase_info(&base);
  const rusage_info_v2 usage = usageOf(process);
  const double nanoseconds =
      static_cast<double>(usage.ri_user_time + usage.ri_system_time) * base.numer / base.denom;
  return nanoseconds / 1e9;
}

std::uint64_t residentBytes(pid_t process) { return usageOf(process).ri_resident_size; }

std::uint64_t proportionalBytes(pid_t process) { return residentBytes(process); }

std::size_t openDescriptors(pid_t process) {
  const int room = ::proc_pidinfo(process, PROC_PIDLISTFDS, 0, nullptr, 0);
  if (room <= 0) failWithErrno("descriptors of a process");
  std::vector<proc_fdinfo> entries(static_cast<std::size_t>(room) / sizeof(proc_fdinfo));
  const int used = ::proc_pidinfo(process, PROC_PIDLISTFDS, 0, entries.data(), room);
  if (used <= 0) failWithErrno("descriptors of a process");
  return static_cast<std::size_t>(used) / sizeof(proc_fdinfo);
}

pid_t forkTerminal(int& master) {
  winsize size{24, 80, 0, 0};
  return ::forkpty(&master, nullptr, nullptr, &size);
}

void endWithParent() {}

void adoptOrphans() {}

}  // namespace velotide::bench
