#include "client/command_line.h"

int main(int count, char** words) { return velotide::client::runCommandLine(count, words); }
