#pragma once

#include <string>

namespace velotide {

// One line to the system log. Only fixed texts and error descriptions, never tokens or terminal content.
void systemLog(const std::string& line);

}  // namespace velotide
