#pragma once

#include <exception>
#include <system_error>

namespace velotide {

// The one exception of the service. It carries a word of one vocabulary (an enumeration), and which
// vocabulary is part of its type, so that the place that turns failures into wire words can tell them apart.
template <typename Word>
struct Failure : std::exception {
  explicit Failure(Word failed) : word(failed) {}
  const char* what() const noexcept override { return "failure"; }

  Word word;
};

// A system call that failed, where the system's own error is the answer.
using SystemFailure = Failure<std::errc>;

inline SystemFailure systemFailure(int error) { return SystemFailure(static_cast<std::errc>(error)); }

}  // namespace velotide
