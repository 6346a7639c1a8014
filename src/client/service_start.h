#pragma once

#include "client/notices.h"
#include "client/service_root.h"

namespace velotide::client {

// Makes sure that a service answers at `root`: starts `velotide-runtime` (from beside this executable, else
// from PATH) when none does, detached from this terminal, and waits until it answers. Several clients may do
// so at once; the services that lose the race for the root end by themselves, and their clients find the
// winner's. Throws Trouble.
void ensureServiceRuns(const ServiceRoot& root, const Notices& notices);

}  // namespace velotide::client
