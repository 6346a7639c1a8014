#pragma once

#include <string>

namespace velotide {

// The wire's word for the exception that is being handled. Call it inside a catch block only.
std::string errorWordOfCurrentFailure();

}  // namespace velotide
