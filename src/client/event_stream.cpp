#include "client/event_stream.h"

#include <poll.h>

#include <charconv>

#include "client/trouble.h"
#include "events/event_log.h"

namespace velotide::client {

namespace {

constexpr Seconds followInterval = 0.25;
// Keeps a response far below what one may carry.
constexpr std::int64_t eventsPerRead = 256;
// Attempts to find the oldest held event while the log moves on, each this much further from it.
constexpr int skipAttempts = 8;
constexpr std::uint64_t skipMargin = 64;

}  // namespace

std::string cursorText(const TerminalEventCursor& cursor) {
  return cursor.appEpoch.text() + ":" + std::to_string(cursor.sequence);
}

std::optional<TerminalEventCursor> parseEventCursor(const std::string& text) {
  const std::size_t colon = text.find(':');
  const std::optional<Uuid> epoch = Uuid::parse(text.substr(0, colon));
  if (!epoch || colon == std::string::npos) return std::nullopt;
  TerminalEventCursor cursor{*epoch, 0};
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data() + colon + 1, end, cursor.sequence);
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return cursor;
}

EventStream::EventStream(Service& service, std::optional<TerminalEventCursor> after)
    : service_(service), isGiven_(after.has_value()) {
  if (after) {
    cursor_ = *after;
    return;
  }
  const TerminalRuntimeResponse response =
      service_.call(TerminalRuntimeRequest::make(TerminalRuntimeAction::readEvents));
  cursor_.appEpoch = response.eventHead.value().appEpoch;
}

void EventStream::goOnBehind(const TerminalEventCursor& cursor) {
  cursor_ = cursor;
  end_ = cursor.sequence;
}

std::vector<TerminalSessionEvent> EventStream::read() {
  const bool isBeginning = !end_;
  const bool maySkip = !isBeginning || !isGiven_;
  TerminalRuntimeResponse response = ask();
  for (int attempt = 0; response.error == "cursor_expired" && maySkip && attempt < skipAttempts; ++attempt) {
    skipToHeld(response.eventHead.value(), skipMargin * static_cast<std::uint64_t>(attempt));
    response = ask();
  }
  if (!response.ok) fail(response);
  if (isBeginning) {
    end_ = response.eventHead.value().sequence;
    missed_ = 0;
  }
  cursor_ = response.events.value().nextCursor;
  wasEmpty_ = response.events->events.empty();
  return std::move(response.events->events);
}

TerminalRuntimeResponse EventStream::ask() {
  TerminalRuntimeRequest request = TerminalRuntimeRequest::make(TerminalRuntimeAction::readEvents);
  request.eventAfter = cursor_;
  request.eventLimit = eventsPerRead;
  return service_.ask(request);
}

void EventStream::fail(const TerminalRuntimeResponse& response) const {
  const std::string word = response.error.value_or("");
  if (word == "future_cursor")
    throw Trouble("No event has that number yet; the newest is " + cursorText(response.eventHead.value()) +
                  ". Leave --after out to read what is held.");
  if (word == "app_restarted" && !isGiven_)
    throw Trouble("The service was restarted, and its events began anew. Start again.");
  throw Trouble(explain(word));
}

void EventStream::skipToHeld(const TerminalEventCursor& head, std::uint64_t margin) {
  constexpr std::uint64_t held = TerminalSessionEventStore::defaultCapacity;
  const std::uint64_t oldest = head.sequence > held ? head.sequence - held : 0;
  missed_ += oldest + margin - cursor_.sequence;
  cursor_.sequence = oldest + margin;
}

bool EventStream::pause(const SignalPipe& signals) const {
  return !waitFor(signals.descriptor(), POLLIN, wasEmpty_ ? followInterval : 0);
}

}  // namespace velotide::client
