#include "client/zsh_line_end.h"

#include <algorithm>
#include <utility>

namespace velotide::client {

namespace {

enum class Match { none, partial, whole };

// Takes `literal` from the front of `text`. Partial when the text ends within it.
Match takeLiteral(std::string_view& text, std::string_view literal) {
  const std::size_t length = std::min(text.size(), literal.size());
  if (text.substr(0, length) != literal.substr(0, length)) return Match::none;
  text.remove_prefix(length);
  return length == literal.size() ? Match::whole : Match::partial;
}

// What zsh puts behind a line that has no end: a sign in reverse, blanks up to the edge, and back.
Match matchLineEnd(std::string_view text) {
  constexpr std::size_t maximumSign = 16;
  Match match = takeLiteral(text, "\x1b[1m\x1b[7m");
  if (match != Match::whole) return match;
  const std::size_t sign = std::min(text.find('\x1b'), text.size());
  if (sign > maximumSign) return Match::none;
  text.remove_prefix(sign);
  match = takeLiteral(text, "\x1b[27m\x1b[1m\x1b[0m");
  if (match != Match::whole) return match;
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  match = takeLiteral(text, "\r \r");
  return match == Match::whole && !text.empty() ? Match::none : match;
}

}  // namespace

std::string ZshLineEnd::filter(std::string_view output) {
  held_ += output;
  std::size_t keep = held_.size();
  std::size_t at = held_.find('\x1b', held_.size() > maximumHeld ? held_.size() - maximumHeld : 0);
  while (at != std::string::npos && keep == held_.size()) {
    if (matchLineEnd(std::string_view(held_).substr(at)) != Match::none) keep = at;
    at = held_.find('\x1b', at + 1);
  }
  std::string rest = held_.substr(keep);
  held_.resize(keep);
  return std::exchange(held_, std::move(rest));
}

std::string ZshLineEnd::end() {
  const std::string left = std::exchange(held_, {});
  return matchLineEnd(left) == Match::whole ? std::string() : left;
}

}  // namespace velotide::client
