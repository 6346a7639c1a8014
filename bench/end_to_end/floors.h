#pragma once

#include <cstdint>

// The least that any program could do in the service's place. Each body runs in a process of its own.
namespace velotide::bench {

// Polls and reads a terminal 16 KiB at a time and throws the bytes away; passes only the stream's trailer on
// to `report`, then waits to be ended.
int drainTerminal(int terminal, std::uint64_t textBytes, int report);

// Polls and reads likewise, and writes each batch to `socket` as a JSON line with base64 text.
int relayTerminal(int terminal, int socket);

// Copies bytes both ways between two pairs of descriptors until either side ends.
int relayBothWays(int leftInput, int leftOutput, int rightInput, int rightOutput);

}  // namespace velotide::bench
