#include <pty.h>
#include <signal.h>
#include <sys/prctl.h>
#include <time.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "end_to_end/platform.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {

double processorSeconds(pid_t process) {
  clockid_t clock = 0;
  timespec used{};
  errno = ::clock_getcpuclockid(process, &clock);
  if (errno != 0 || ::clock_gettime(clock, &used) != 0) failWithErrno("processor time of a process");
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

namespace {

// The roll-up walks the page tables; the counters in statm lag behind by many pages.
std::uint64_t rolledUpBytes(pid_t process, std::string_view name) {
  std::ifstream rollup("/proc/" + std::to_string(process) + "/smaps_rollup");
  for (std::string word; rollup >> word;) {
    std::uint64_t kibibytes = 0;
    if (word == name && rollup >> kibibytes) return kibibytes * 1024;
  }
  throw std::runtime_error("the memory of a process cannot be read");
}

}  // namespace

std::uint64_t residentBytes(pid_t process) { return rolledUpBytes(process, "Rss:"); }

std::uint64_t proportionalBytes(pid_t process) { return rolledUpBytes(process, "Pss:"); }

std::size_t openDescriptors(pid_t process) {
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(process) + "/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

pid_t forkTerminal(int& master) {
  const winsize size{24, 80, 0, 0};
  return ::forkpty(&master, nullptr, nullptr, &size);
}

void endWithParent() { ::prctl(PR_SET_PDEATHSIG, SIGKILL); }

void adoptOrphans() { ::prctl(PR_SET_CHILD_SUBREAPER, 1); }

}  // namespace velotide::bench
