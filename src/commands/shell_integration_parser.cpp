#include "commands/shell_integration_parser.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "base/utf8.h"

namespace velotide {

namespace {

constexpr std::uint8_t escape = 0x1B;
constexpr std::uint8_t bellTerminator = 0x07;
constexpr std::string_view markerPrefix = "\x1b]777;Velotide;";
constexpr std::size_t maximumPayloadBytes = 32'768;
constexpr std::size_t longestPartialPrefix = markerPrefix.size() - 1;
constexpr std::size_t nowhere = static_cast<std::size_t>(-1);

struct Terminator {
  std::size_t begin = nowhere;
  std::size_t end = nowhere;
};

constexpr std::size_t blockSize = 32;

// Whether an escape and a bracket that begins no control sequence follow each other in the block or across
// its end. Without a branch and in bytes, so that the compiler turns it into a few vector instructions.
bool mayHoldPrefix(const std::uint8_t* block) {
  std::uint8_t found = 0;
  for (std::size_t index = 0; index < blockSize; ++index) {
    const bool isSuch = (block[index] == escape) & (block[index + 1] == ']');
    found = static_cast<std::uint8_t>(found | static_cast<std::uint8_t>(isSuch));
  }
  return found != 0;
}

// Escape begins the prefix and occurs nowhere else in it, so a search may go from escape to escape; where
// they lie close together, most beginning something else, from block to block.
std::size_t findPrefix(ByteView bytes, std::size_t from) {
  while (bytes.size() - from >= markerPrefix.size()) {
    const void* found = std::memchr(bytes.data() + from, escape, bytes.size() - from);
    if (found == nullptr) return nowhere;
    from = static_cast<std::size_t>(static_cast<const std::uint8_t*>(found) - bytes.data());
    if (textOf(bytes.subspan(from)).starts_with(markerPrefix)) return from;
    ++from;
    while (bytes.size() - from > blockSize && !mayHoldPrefix(bytes.data() + from)) from += blockSize;
  }
  return nowhere;
}

Terminator findTerminator(ByteView bytes, std::size_t from) {
  for (std::size_t at = from; at < bytes.size(); ++at) {
    if (bytes[at] == bellTerminator) return {at, at + 1};
    if (bytes[at] == escape && at + 1 < bytes.size() && bytes[at + 1] == '\\') return {at, at + 2};
  }
  return {};
}

void report(ByteView payload, std::uint64_t startOffset, std::uint64_t endOffset,
            std::vector<TerminalLocatedShellEvent>& events) {
  if (payload.size() > maximumPayloadBytes || !isValidUtf8(payload)) return;
  if (auto event = parseShellIntegrationPayload(textOf(payload))) {
    events.push_back({std::move(*event), startOffset, endOffset});
  }
}

}  // namespace

std::size_t TerminalShellIntegrationParser::retainedByteCount() const {
  switch (state_) {
    case State::searching:
      return searched_;
    case State::insideMark:
      return markerPrefix.size() + payload_.size();
    case State::abandoned:
      return maximumRetainedBytes;
  }
  return 0;
}

std::vector<TerminalShellIntegrationEvent> TerminalShellIntegrationParser::accept(ByteView chunk) {
  std::vector<TerminalShellIntegrationEvent> events;
  for (TerminalLocatedShellEvent& located : acceptLocated(chunk, nextOffset_.value_or(0))) {
    events.push_back(std::move(located.event));
  }
  return events;
}

std::vector<TerminalLocatedShellEvent> TerminalShellIntegrationParser::acceptLocated(ByteView chunk,
                                                                                     std::uint64_t offset) {
  Events events;
  if (chunk.empty()) return events;
  const std::uint64_t endOffset = offset + chunk.size();
  const bool wraps = endOffset < offset;
  if (wraps || nextOffset_ != offset) forget();
  nextOffset_ = wraps ? std::nullopt : std::optional(endOffset);
  if (wraps) return events;

  if (state_ == State::abandoned) leaveAbandonedMark();
  std::size_t position = resumePrefix(chunk);
  if (state_ == State::insideMark) {
    position = resumeMark(chunk.subspan(position), offset + position, events) + position;
  }
  while (state_ == State::searching) {
    const std::size_t start = findPrefix(chunk, position);
    if (start == nowhere) break;
    const std::size_t payload = start + markerPrefix.size();
    const Terminator terminator = findTerminator(chunk, payload);
    if (terminator.begin == nowhere) {
      state_ = State::insideMark;
      extendMark(chunk.subspan(payload));
      return events;
    }
    report(chunk.subspan(payload, terminator.begin - payload), offset + start, offset + terminator.end,
           events);
    forget();
    position = terminator.end;
  }
  if (state_ == State::searching) rememberTail(chunk.subspan(position));
  return events;
}

void TerminalShellIntegrationParser::forget() {
  state_ = State::searching;
  prefixMatched_ = 0;
  searched_ = 0;
  if (!payload_.empty()) payload_ = {};
}

// How much of the chunk continues a prefix that began before it.
std::size_t TerminalShellIntegrationParser::resumePrefix(ByteView chunk) {
  if (state_ != State::searching || prefixMatched_ == 0) return 0;
  const std::string_view wanted = markerPrefix.substr(prefixMatched_, chunk.size());
  if (!textOf(chunk).starts_with(wanted)) {
    prefixMatched_ = 0;
    return 0;
  }
  prefixMatched_ += wanted.size();
  searched_ = std::min(longestPartialPrefix, searched_ + wanted.size());
  if (prefixMatched_ == markerPrefix.size()) {
    state_ = State::insideMark;
    prefixMatched_ = 0;
  }
  return wanted.size();
}

// Returns where in the chunk, which begins at `offset`, the search for marks goes on.
std::size_t TerminalShellIntegrationParser::resumeMark(ByteView chunk, std::uint64_t offset, Events& events) {
  const std::uint64_t startOffset = offset - retainedByteCount();
  Terminator terminator;
  const bool endsWithEscape = !payload_.empty() && payload_.view().back() == escape;
  if (endsWithEscape && !chunk.empty() && chunk.front() == '\\') {
    payload_.dropBack(1);
    terminator = {0, 1};
  } else {
    terminator = findTerminator(chunk, 0);
  }
  if (terminator.begin == nowhere) {
    extendMark(chunk);
    return chunk.size();
  }
  if (payload_.size() + terminator.begin <= maximumPayloadBytes) {
    payload_.append(chunk.first(terminator.begin));
    report(payload_.view(), startOffset, offset + terminator.end, events);
  }
  forget();
  return terminator.end;
}

void TerminalShellIntegrationParser::extendMark(ByteView bytes) {
  if (retainedByteCount() + bytes.size() <= maximumRetainedBytes) {
    payload_.append(bytes);
    return;
  }
  state_ = State::abandoned;
  const ByteView kept = bytes.last(std::min(bytes.size(), maximumRetainedBytes));
  const std::size_t room = maximumRetainedBytes - kept.size();
  if (payload_.size() > room) payload_.consume(payload_.size() - room);
  payload_.append(kept);
}

void TerminalShellIntegrationParser::leaveAbandonedMark() {
  const std::size_t start = findPrefix(payload_.view(), 0);
  if (start != nowhere) {
    state_ = State::insideMark;
    payload_.consume(start + markerPrefix.size());
    return;
  }
  const ByteQueue kept = std::move(payload_);
  payload_ = {};
  forget();
  rememberTail(kept.view());
}

void TerminalShellIntegrationParser::rememberTail(ByteView bytes) {
  if (bytes.empty()) return;
  searched_ = std::min(longestPartialPrefix, searched_ + bytes.size());
  prefixMatched_ = 0;
  const std::string_view tail = textOf(bytes.last(std::min(bytes.size(), longestPartialPrefix)));
  const std::size_t start = tail.rfind(static_cast<char>(escape));
  if (start != tail.npos && markerPrefix.starts_with(tail.substr(start))) {
    prefixMatched_ = tail.size() - start;
  }
}

}  // namespace velotide
