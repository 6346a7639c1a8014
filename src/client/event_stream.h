#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/service.h"
#include "client/signal_pipe.h"

namespace velotide::client {

// As people and scripts write a point in the event log: EPOCH:SEQUENCE.
std::string cursorText(const TerminalEventCursor& cursor);
std::optional<TerminalEventCursor> parseEventCursor(const std::string& text);

// The event log from one point on. To follow it, one connection is held on which the log is asked four times
// a second: a request costs the service a look at events newer than the cursor, keeps the connection from
// being closed as idle, and reaches all sessions, where a subscription would wake for one alone.
class EventStream {
 public:
  // Both must outlive it. Without a cursor the stream begins with the oldest event that is held.
  EventStream(Service& service, std::optional<TerminalEventCursor> after);

  const TerminalEventCursor& cursor() const { return cursor_; }
  // Goes on behind another cursor; what is no longer held there was dropped.
  void goOnBehind(const TerminalEventCursor& cursor);
  // Whether all was read that was there at the first read: what is added meanwhile may be without end.
  bool isThrough() const { return end_ && cursor_.sequence >= *end_; }
  // Events that were dropped before they were read; they are counted once.
  std::uint64_t takeMissed() { return std::exchange(missed_, 0); }

  // The next events, none when there are no more as yet. Events that the log dropped while they were being
  // followed are counted and skipped. Throws Trouble, for a cursor that was given also when it is no longer,
  // or not yet, one of the log's.
  std::vector<TerminalSessionEvent> read();

  // Waits for more once a read brought nothing. False when a signal asks to end.
  bool pause(const SignalPipe& signals) const;

 private:
  TerminalRuntimeResponse ask();
  [[noreturn]] void fail(const TerminalRuntimeResponse& response) const;
  void skipToHeld(const TerminalEventCursor& head, std::uint64_t margin);

  Service& service_;
  TerminalEventCursor cursor_;
  // Whether the beginning is the caller's, to be held to exactly.
  const bool isGiven_;
  // Where the log stood at the first read.
  std::optional<std::uint64_t> end_;
  bool wasEmpty_ = false;
  std::uint64_t missed_ = 0;
};

}  // namespace velotide::client
