#include "base/standard_descriptors.h"
#include "client/command_line.h"

int main(int count, char** words) {
  // For reading alone: results that nobody can get are a failure.
  velotide::fillStandardDescriptors(O_RDONLY);
  return velotide::client::runCommandLine(count, words);
}
