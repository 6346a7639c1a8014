#pragma once

#include "client/service.h"

namespace velotide::client {

// Connects standard input and output, of which not both are terminals, with a session whose terminal neither
// echoes nor translates, until its program ends. Answers with the exit status, as `attach` does. What
// standard output does not take makes the program wait; nothing is dropped.
int runPlain(Service& service, const TerminalRuntimeSessionInfo& session);

}  // namespace velotide::client
