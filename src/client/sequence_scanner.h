#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace velotide::client {

// Cuts a terminal's byte stream into plain text and escape sequences, in any chunking. A sequence comes whole
// and in one piece; while its end has not been seen, its beginning is held, up to `maximumSequence` bytes:
// what is longer (an image, say) is let through as text until its end.
class SequenceScanner {
 public:
  static constexpr std::size_t maximumSequence = 4096;

  // Calls text(std::string_view) and sequence(std::string_view) in the order of the stream.
  void scan(std::string_view bytes, auto&& text, auto&& sequence);

  // The beginning of a sequence that is held, to be passed on before the scanner is left.
  const std::string& held() const { return held_; }
  std::string takeHeld();
  // Whether the text that is being passed on belongs to a sequence that is too long to hold. Its beginning
  // comes in one piece of that length.
  bool isLettingThrough() const { return isLetThrough_; }
  // Whether the stream stands inside a sequence, held or let through.
  bool isInside() const { return state_ != State::ground; }

 private:
  enum class State { ground, escape, control, string, stringEscape };
  // restarted: this byte begins another sequence; abandoned: the byte before it did.
  enum class Step { more, complete, cancelled, restarted, abandoned };

  Step advance(char byte);

  State state_ = State::ground;
  bool isBelEnding_ = false;
  bool isLetThrough_ = false;
  std::string held_;
};

void SequenceScanner::scan(std::string_view bytes, auto&& text, auto&& sequence) {
  std::size_t begin = 0;
  std::size_t at = 0;
  const auto passText = [&](std::size_t end) {
    if (end > begin) text(bytes.substr(begin, end - begin));
    begin = end;
  };
  while (at < bytes.size()) {
    if (state_ == State::ground) {
      at = bytes.find('\x1b', at);
      if (at == std::string_view::npos) at = bytes.size();
      if (at == bytes.size()) break;
      passText(at);
    }
    const Step step = advance(bytes[at]);
    ++at;
    if (isLetThrough_) {
      if (step == Step::more) continue;
      const bool isBroken = step == Step::restarted || step == Step::abandoned;
      if (!isBroken && !held_.empty()) text(std::string_view(std::exchange(held_, {})));
      if (step == Step::abandoned) --at;
      // What broke it off is ESC, which may have been held since the chunk before.
      passText(at - (isBroken && at > 0 ? 1 : 0));
      isLetThrough_ = false;
      if (isBroken) held_ = "\x1b";
      begin = at;
      continue;
    }
    if (step == Step::abandoned) {
      held_.pop_back();
      --at;
    } else if (step != Step::restarted) {
      held_.push_back(bytes[at - 1]);
    }
    if (step == Step::restarted || step == Step::abandoned) {
      const std::string unfinished = std::exchange(held_, "\x1b");
      if (!unfinished.empty()) text(std::string_view(unfinished));
    }
    begin = at;
    if (step == Step::complete) {
      const std::string whole = std::exchange(held_, {});
      sequence(std::string_view(whole));
    } else if (step == Step::cancelled ||
               (held_.size() >= maximumSequence && state_ != State::stringEscape)) {
      isLetThrough_ = state_ != State::ground;
      const std::string whole = std::exchange(held_, {});
      text(std::string_view(whole));
    }
  }
  // Whether this ESC ends or breaks off what is let through shows with the next byte.
  if (isLetThrough_ && state_ == State::stringEscape && !bytes.empty()) {
    passText(bytes.size() - 1);
    held_ = "\x1b";
  } else {
    passText(bytes.size());
  }
}

}  // namespace velotide::client
