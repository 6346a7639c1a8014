#include "client/control_sequence.h"

#include <algorithm>

namespace velotide::client {

namespace {

int number(std::string_view text) {
  int value = 0;
  for (const char digit : text.substr(0, text.find(':'))) {
    if (digit >= '0' && digit <= '9') value = std::min(value * 10 + (digit - '0'), 65535);
  }
  return value;
}

}  // namespace

std::optional<ControlSequence> ControlSequence::parse(std::string_view sequence) {
  if (sequence.size() < 3 || !sequence.starts_with("\x1b[")) return std::nullopt;
  ControlSequence parsed;
  parsed.final = sequence.back();
  std::string_view body = sequence.substr(2, sequence.size() - 3);
  if (!body.empty() && std::string_view("<=>?").find(body.front()) != std::string_view::npos) {
    parsed.prefix = body.front();
    body.remove_prefix(1);
  }
  const std::size_t end = std::min(body.find_first_not_of("0123456789;:"), body.size());
  parsed.intermediates = body.substr(end);
  body = body.substr(0, end);
  while (!body.empty()) {
    const std::size_t separator = std::min(body.find(';'), body.size());
    parsed.parameters.push_back(number(body.substr(0, separator)));
    body.remove_prefix(std::min(separator + 1, body.size()));
  }
  return parsed;
}

}  // namespace velotide::client
