#pragma once

#include <string>

#include "base/failure.h"
#include "base/record.h"

namespace velotide {

// The word with which the action is refused, or nothing.
template <typename Word>
std::string refusal(auto action) {
  try {
    action();
    return "";
  } catch (const Failure<Word>& failure) {
    return std::string(rawWord(failure.word));
  }
}

}  // namespace velotide
