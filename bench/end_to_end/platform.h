#pragma once

#include <sys/types.h>

#include <cstdint>

// What the systems spell differently: one source file for each of them.
namespace velotide::bench {

// Processor time, user and system, that a process has used so far.
double processorSeconds(pid_t process);

std::uint64_t residentBytes(pid_t process);
// The same with shared pages counted by the share of each process, where the system can tell.
std::uint64_t proportionalBytes(pid_t process);

// Descriptors that a process holds.
std::size_t openDescriptors(pid_t process);

// forkpty() with the default line discipline at 80 columns and 24 rows.
pid_t forkTerminal(int& master);

// Asks the system to kill the calling process when its parent ends, where it can do so.
void endWithParent();

// Makes the children that a killed child leaves behind this process's own, where the system can do so.
void adoptOrphans();

}  // namespace velotide::bench
