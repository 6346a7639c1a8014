#pragma once

#include <cstdint>

// All that the service needs from the system's pseudo-terminals and processes, as plain functions that keep
// no state, print nothing and report failure by -1 and errno.
extern "C" {

// Starts a child on a new pseudo-terminal of the given size. `executable` is used as it is, without a search
// of PATH; both vectors end with a null pointer. Returns the master descriptor, non-blocking and
// close-on-exec, and the child's process ID; or -1, with no child and no descriptor left, when it could not
// be started within three seconds.
int velotide_pty_spawn(const char* executable, char* const arguments[], char* const environment[],
                       const char* directory, std::int32_t columns, std::int32_t rows, std::int32_t* pid);

// Whether a terminal may have a side of so many columns or rows.
constexpr bool velotide_pty_is_side(std::int64_t side) { return side >= 1 && side <= 1000; }

// Sets the window size.
int velotide_pty_resize(int master, std::int32_t columns, std::int32_t rows);

// 1 when the line discipline echoes, 0 when it does not.
int velotide_pty_echo(int master);

// Reaps a child without blocking: 1 when it was reaped, 0 while it runs. The status is its exit code, or 128
// plus the number of the signal that ended it.
int velotide_pty_poll_exit(std::int32_t pid, std::int32_t* status);
}
