#pragma once

#include <string>
#include <string_view>

namespace velotide {

// A secret of 72 characters: the texts of two random UUIDs, joined.
std::string makeToken();

// Compares in a time that depends on the lengths alone.
bool equalInConstantTime(std::string_view one, std::string_view other);

}  // namespace velotide
