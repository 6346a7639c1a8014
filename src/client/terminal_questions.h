#pragma once

#include <string_view>

#include "client/session_input.h"

// The answers that a terminal sends to the questions in a program's output, as if they were typed.
namespace velotide::client {

// What kind of input a whole sequence from a terminal is. Keys that look like a short answer count as typed.
SessionInput::Kind kindOfSequence(std::string_view sequence);

}  // namespace velotide::client
