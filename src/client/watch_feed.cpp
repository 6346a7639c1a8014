#include "client/watch_feed.h"

#include <algorithm>
#include <utility>

#include "client/trouble.h"
#include "events/event_log.h"

namespace velotide::client {

namespace {

constexpr Seconds pollPause = 0.5;
// How long an answer may take before that is said.
constexpr Seconds answerDeadline = 2;

// What a session prints, and where its window is, is not shown.
bool isShown(TerminalSessionEventKind kind) {
  return kind != TerminalSessionEventKind::outputChanged && kind != TerminalSessionEventKind::locationChanged;
}

}  // namespace

std::string WatchFeed::trouble() const {
  if (isGone_) return "service gone, waiting";
  if (step_ != Step::resting && now_ - askedAt_ >= answerDeadline) return "service does not answer, waiting";
  return refusal_;
}

void WatchFeed::refresh() {
  cursor_.reset();
  // Sessions may have ended that nobody looked at; the past tells when.
  hasPast_ = false;
  if (step_ == Step::resting) nextAt_ = now();
}

pollfd WatchFeed::pollEntry() const {
  if (!connection_) return {-1, 0, 0};
  const int events = connection_->wantsWrite() ? POLLIN | POLLOUT : POLLIN;
  return {connection_->descriptor(), static_cast<short>(events), 0};
}

Uptime WatchFeed::deadline() const { return step_ == Step::resting ? nextAt_ : now_ + pollPause; }

void WatchFeed::turn(short happened) {
  now_ = now();
  if (connection_ && happened != 0) receive();
  if (step_ == Step::resting && now_ >= nextAt_) {
    if (!connection_) connect();
    if (connection_) ask(TerminalRuntimeAction::readEvents, Step::asksEvents);
  }
  if (connection_ && !connection_->flush()) loseConnection();
}

void WatchFeed::connect() {
  cursor_.reset();
  hasPast_ = false;
  try {
    connection_.emplace(service_.connect());
    TerminalRuntimeRequest unsent;
    service_.authorize(unsent, true);
  } catch (const Trouble&) {
    // Whatever stands in the way may pass, as a service that starts does.
    connection_.reset();
    isGone_ = true;
    nextAt_ = now_ + pollPause;
  }
}

// The service closes idle connections as a matter of course (this process was stopped, say): only one that
// was never answered tells that it is gone or full.
void WatchFeed::loseConnection() {
  const bool wasAnswered = connection_->hasAnswered();
  isGone_ = isGone_ || !wasAnswered;
  connection_.reset();
  step_ = Step::resting;
  nextAt_ = wasAnswered ? now_ : now_ + pollPause;
}

void WatchFeed::ask(TerminalRuntimeAction action, Step step) {
  TerminalRuntimeRequest request = TerminalRuntimeRequest::make(action);
  service_.authorize(request);
  if (action == TerminalRuntimeAction::readEvents) request.eventAfter = cursor_;
  asked_ = request.id;
  askedAt_ = now_;
  step_ = step;
  connection_->queue(request);
}

void WatchFeed::receive() {
  const bool isOpen = connection_->receive();
  while (std::optional<TerminalRuntimeResponse> response = connection_->next()) {
    if (response->id == asked_) take(*response);
  }
  if (!isOpen) loseConnection();
}

void WatchFeed::take(const TerminalRuntimeResponse& response) {
  isGone_ = false;
  if (!response.ok) {
    // A position from before a restart, or that lies too far back, is no fault: begin anew.
    const bool isPosition = step_ == Step::asksEvents && cursor_;
    refusal_ = isPosition ? "" : explain(response.error.value_or(""));
    cursor_.reset();
    rest();
    if (isPosition) nextAt_ = now_;
    return;
  }
  switch (step_) {
    case Step::resting:
      break;
    case Step::asksEvents:
      takeEvents(response.events.value_or(TerminalEventBatch()));
      break;
    case Step::asksSessions:
      sessions_.takeSessions(response.sessions.value_or(std::vector<TerminalRuntimeSessionInfo>()));
      ask(TerminalRuntimeAction::listAttention, Step::asksAttention);
      break;
    case Step::asksAttention:
      sessions_.takeAttention(response.attention.value_or(std::vector<TerminalAttentionItem>()));
      refusal_.clear();
      rest();
      break;
  }
}

// The position is taken before the lists, so that nothing that happens in between is missed.
void WatchFeed::takeEvents(const TerminalEventBatch& batch) {
  bool hasMore = batch.hasMore;
  const bool isFirst = !cursor_;
  cursor_ = batch.nextCursor;
  isNews_ = isNews_ || isFirst;
  if (isFirst && !std::exchange(hasPast_, true) && cursor_->sequence > 0) {
    constexpr std::uint64_t held = TerminalSessionEventStore::defaultCapacity;
    cursor_->sequence -= std::min(cursor_->sequence, held);
    hasMore = true;
  }
  for (const TerminalSessionEvent& event : batch.events) {
    if (event.kind == TerminalSessionEventKind::processExited)
      sessions_.noteExit(event.tabID, event.occurredAt);
    isNews_ = isNews_ || isShown(event.kind);
  }
  if (hasMore)
    ask(TerminalRuntimeAction::readEvents, Step::asksEvents);
  else if (std::exchange(isNews_, false))
    ask(TerminalRuntimeAction::list, Step::asksSessions);
  else
    rest();
}

void WatchFeed::rest() {
  step_ = Step::resting;
  nextAt_ = now_ + pollPause;
}

}  // namespace velotide::client
