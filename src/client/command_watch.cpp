#include "client/command_watch.h"

#include <variant>

namespace velotide::client {

std::string CommandWatch::take(ByteView bytes, std::uint64_t offset) {
  if (state_ == State::finished || state_ == State::superseded) return {};
  for (const TerminalLocatedShellEvent& located : parser_.acceptLocated(bytes, offset)) apply(located);
  std::string output;
  if (markerOffset_ && !output_) {
    output_.emplace(*markerOffset_);
    output = cut(bytesOf(earlier_), offset - earlier_.size());
    earlier_.clear();
  }
  if (output_) {
    output += cut(bytes, offset);
  } else {
    earlier_ += textOf(bytes);
    if (earlier_.size() > maximumEarlier) earlier_.erase(0, earlier_.size() - maximumEarlier);
  }
  if (!isZsh_) return output;
  output = lineEnd_.filter(output);
  return state_ == State::running ? output : output + lineEnd_.end();
}

std::string CommandWatch::cut(ByteView bytes, std::uint64_t offset) {
  ByteQueue found;
  output_->accept(bytes, offset, found);
  return std::string(found.text());
}

void CommandWatch::apply(const TerminalLocatedShellEvent& located) {
  const auto* started = std::get_if<TerminalShellCommandStarted>(&located.event);
  const bool isStart = started != nullptr && !started->text.empty();
  switch (state_) {
    case State::awaited:
      if (const auto* shell = std::get_if<TerminalShellDetected>(&located.event))
        isZsh_ = shell->name == "zsh";
      if (!isStart || located.startOffset < startOffset_) return;
      state_ = State::running;
      markerOffset_ = located.startOffset;
      return;
    case State::running:
      if (isStart) state_ = State::superseded;
      if (const auto* ended = std::get_if<TerminalShellCommandFinished>(&located.event)) {
        state_ = State::finished;
        exitCode_ = ended->exitCode;
      }
      return;
    case State::finished:
    case State::superseded:
      return;
  }
}

}  // namespace velotide::client
