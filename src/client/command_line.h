#pragma once

namespace velotide::client {

// Understands the command line, does what it says, and answers with the exit status. Never throws.
int runCommandLine(int count, char** words);

}  // namespace velotide::client
