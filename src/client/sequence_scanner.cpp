#include "client/sequence_scanner.h"

namespace velotide::client {

namespace {

constexpr char escapeByte = '\x1b';
constexpr char bell = '\a';
constexpr char cancel = '\x18';
constexpr char substitute = '\x1a';

bool isWithin(char byte, char first, char last) { return byte >= first && byte <= last; }

}  // namespace

std::string SequenceScanner::takeHeld() {
  state_ = State::ground;
  isLetThrough_ = false;
  return std::exchange(held_, {});
}

SequenceScanner::Step SequenceScanner::advance(char byte) {
  const auto end = [this](Step step) {
    state_ = State::ground;
    return step;
  };
  if (byte == cancel || byte == substitute) return end(Step::cancelled);
  switch (state_) {
    case State::ground:
      state_ = State::escape;
      return Step::more;
    case State::escape:
      isBelEnding_ = byte == ']';
      if (byte == '[') {
        state_ = State::control;
      } else if (byte == ']' || byte == 'P' || byte == '_' || byte == '^' || byte == 'X') {
        state_ = State::string;
      } else if (byte == escapeByte) {
        return Step::restarted;
      } else if (!isWithin(byte, ' ', '/')) {
        return end(Step::complete);
      }
      return Step::more;
    case State::control:
      if (byte == escapeByte) {
        state_ = State::escape;
        return Step::restarted;
      }
      return isWithin(byte, '@', '~') ? end(Step::complete) : Step::more;
    case State::string:
      if (byte == escapeByte) state_ = State::stringEscape;
      return byte == bell && isBelEnding_ ? end(Step::complete) : Step::more;
    case State::stringEscape:
      if (byte == '\\') return end(Step::complete);
      state_ = State::escape;
      return Step::abandoned;
  }
  return Step::more;
}

}  // namespace velotide::client
