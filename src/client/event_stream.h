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
  // Events that were dropped before they were read; they are counted once.
  std::uint64_t takeMissed() { return std::exchange(missed_, 0); }

  // The next events, none when there are no more as yet. Events that the log dropped while they were being
  // followed are counted and skipped. Throws Trouble, for a cursor that was given also when it is no longer,
  // or not yet, one of the log's.
  std::vector<TerminalSessionEvent> read();

  // Waits for more. False when a signal asks to end.
  static bool pause(const SignalPipe& signals);

 private:
  TerminalRuntimeResponse ask();
  void skipToHeld(const TerminalEventCursor& head, std::uint64_t margin);

  Service& service_;
  TerminalEventCursor cursor_;
  // Whether the beginning is the caller's, to be held to exactly.
  bool isGiven_;
  std::uint64_t missed_ = 0;
};

}  // namespace velotide::client
