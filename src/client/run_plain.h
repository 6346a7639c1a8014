#pragma once

#include "client/service.h"

namespace velotide::client {

// Connects standard input and output, of which not both are terminals, with a session whose terminal neither
// echoes nor translates, until its program ends. Answers with the exit status, as `attach` does. When
// standard output takes less than the program prints, input is held back, and where `inputAllowsStopping` the
// program is made to wait; else what exceeds 64 MiB is lost, which is an error.
int runPlain(Service& service, const TerminalRuntimeSessionInfo& session);

// Whether standard input is a terminal or nothing at all, so that the keys that stop and continue output
// cannot be mistaken for data: systems look for them ahead of everything else, quoted or not.
bool inputAllowsStopping();

}  // namespace velotide::client
