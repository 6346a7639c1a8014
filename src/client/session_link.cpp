#include "client/session_link.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <utility>

#include "client/trouble.h"

namespace velotide::client {

namespace {

constexpr Seconds openDeadline = 15;
// How long the service may take to let go of a connection that is over.
constexpr Seconds leaveDeadline = 0.05;
constexpr Seconds reconnectDeadline = 10;
// The same while nothing listens there: a service that starts anew does not know the session.
constexpr Seconds goneDeadline = 1;
constexpr Seconds reconnectPause = 0.1;
constexpr Seconds fullPause = 0.01;
constexpr Seconds inquiryPause = 0.005;
// How long a terminal may stay open, held by what the program left behind, before the end counts as seen.
constexpr Seconds lastOutputDeadline = 1;

}  // namespace

SessionLink::SessionLink(Service& service, Observer& observer, const TerminalRuntimeSessionInfo& session,
                         std::optional<TerminalRuntimeOutputCursor> after)
    : service_(service),
      observer_(observer),
      session_(session),
      input_(session),
      cursor_(after),
      now_(now()) {}

// A connection that is closed with something unread looks broken to the service, which would report that.
SessionLink::~SessionLink() {
  if (!connection_) return;
  ::shutdown(connection_->descriptor(), SHUT_WR);
  const Uptime until = now() + leaveDeadline;
  for (Seconds left = leaveDeadline; left > 0; left = until - now()) {
    if (!waitFor(connection_->descriptor(), POLLIN, left) || !connection_->receive()) return;
  }
}

void SessionLink::open(int interruption) {
  Patience patience(service_.notices(), "the service to show the session", openDeadline);
  connect();
  while (!openedAt_ && !ending_ && !patience.isSpent()) {
    std::array<pollfd, 2> entries = {{pollEntry(), {interruption, POLLIN, 0}}};
    ::poll(entries.data(), entries.size(), connection_ ? 500 : static_cast<int>(reconnectPause * 1000));
    if (entries[1].revents != 0) return;
    turn(entries[0].revents);
  }
  if (openedAt_) return;
  if (ending_ && ending_->kind == SessionEnding::Kind::closed) throw Trouble(explain("unavailable"));
  throw Trouble(
      "The service closes the connection or does not answer: it may have all the clients it takes (32). "
      "Detach some, then try again.");
}

void SessionLink::connect() {
  connection_.emplace(service_.connect());
  retryAt_.reset();
  subscribe();
}

void SessionLink::subscribe() {
  TerminalRuntimeRequest request = Service::about(session_, TerminalRuntimeAction::subscribe);
  request.after = cursor_;
  subscription_ = request.id;
  isSubscribed_ = false;
  overAt_.reset();
  inquiry_ = {};
  inquireAt_.reset();
  send(std::move(request));
}

void SessionLink::send(TerminalRuntimeRequest request) {
  service_.authorize(request);
  connection_->queue(request);
}

void SessionLink::resize(WindowSize size) {
  wantedSize_ = size;
  resize_.reset();
  sendWaiting();
}

void SessionLink::replay() {
  cursor_.reset();
  openedAt_.reset();
  if (connection_) subscribe();
}

pollfd SessionLink::pollEntry() const {
  if (!connection_) return {-1, 0, 0};
  const int events = (isPaused_ ? 0 : POLLIN) | (connection_->wantsWrite() ? POLLOUT : 0);
  // Without events poll(2) would still report the hang-up, turn after turn.
  return {events == 0 ? -1 : connection_->descriptor(), static_cast<short>(events), 0};
}

std::optional<Uptime> SessionLink::deadline() const {
  std::optional<Uptime> first;
  for (const std::optional<Uptime>& instant : {retryAt_, inputPausedUntil_, inquireAt_}) {
    if (instant && (!first || *instant < *first)) first = instant;
  }
  return first;
}

void SessionLink::turn(short happened) {
  now_ = now();
  if (ending_) return;
  if (!connection_ && retryAt_ && *retryAt_ <= now_) reconnect();
  // What was sent before the connection broke is still there to be read, so an error alone is no reason not
  // to.
  if (connection_ && (happened & (POLLIN | POLLHUP | POLLERR)) != 0 && !isPaused_) receive();
  if (inputPausedUntil_ && *inputPausedUntil_ <= now_) inputPausedUntil_.reset();
  if (inquireAt_ && *inquireAt_ <= now_ && connection_) {
    inquireAt_.reset();
    TerminalRuntimeRequest request = Service::about(session_, TerminalRuntimeAction::getAgentState);
    inquiry_ = request.id;
    send(std::move(request));
  }
  if (!ending_) sendWaiting();
  if (connection_ && !connection_->flush()) loseConnection();
}

void SessionLink::sendWaiting() {
  if (!connection_ || !isSubscribed_) return;
  if (wantedSize_ && !resize_) {
    TerminalRuntimeRequest request = Service::about(session_, TerminalRuntimeAction::resize);
    request.columns = wantedSize_->columns;
    request.rows = wantedSize_->rows;
    resize_ = request.id;
    send(std::move(request));
  }
  if (inputPausedUntil_) return;
  if (std::optional<TerminalRuntimeRequest> request = input_.next()) send(std::move(*request));
}

void SessionLink::receive() {
  const bool isOpen = connection_->receive();
  while (!ending_) {
    const std::optional<TerminalRuntimeResponse> response = connection_->next();
    if (!response) break;
    take(*response);
  }
  if (!isOpen && !ending_) loseConnection();
}

void SessionLink::take(const TerminalRuntimeResponse& response) {
  if (serviceEpoch_ == Uuid{}) serviceEpoch_ = response.serviceEpoch;
  if (serviceEpoch_ != response.serviceEpoch) return end(SessionEnding::Kind::serviceGone);
  if (response.id == subscription_) return takeSubscription(response);
  if (input_.isAnsweredBy(response)) {
    const SessionInput::Outcome outcome = input_.accept(response);
    if (outcome == SessionInput::Outcome::refusedByOwner) observer_.refuseInput();
    if (outcome == SessionInput::Outcome::full) inputPausedUntil_ = now_ + fullPause;
  } else if (response.id == resize_) {
    wantedSize_.reset();
    resize_.reset();
  } else if (response.id == inquiry_ && response.ok) {
    watchForEnd(response);
  }
}

void SessionLink::takeSubscription(const TerminalRuntimeResponse& response) {
  if (!response.ok) return takeRefusal(response.error.value_or(""));
  if (!isSubscribed_) {
    isSubscribed_ = true;
    if (!openedAt_) openedAt_ = response.latestOffset.value_or(0);
    // Answered from the service's memory if it had arrived before the connection was lost.
    if (lostAt_ && input_.unanswered()) send(*input_.unanswered());
    if (lostAt_) observer_.regainConnection();
    lostAt_.reset();
  }
  if (response.session) {
    session_ = *response.session;
    input_.observe(session_);
  }
  // First whose output it is: it may be that of a new program.
  observer_.takeState(session_);
  takeOutput(response);
  watchForEnd(response);
}

void SessionLink::takeOutput(const TerminalRuntimeResponse& response) {
  if (!response.cursor || !response.data) return;
  const ByteView data = response.data->head();
  const std::uint64_t begin = response.cursor->offset - data.size();
  const std::uint64_t expected = cursor_ ? cursor_->offset : 0;
  cursor_ = response.cursor;
  if (begin > expected) observer_.missOutput(begin - expected);
  if (!data.empty()) observer_.takeOutput(data, begin);
}

void SessionLink::takeRefusal(std::string_view word) {
  if (word == "target_closed" || word == "unavailable") return end(SessionEnding::Kind::closed);
  if (word != "generation_changed") throw Trouble(explain(word));
  const std::optional<TerminalRuntimeSessionInfo> found = service_.session(session_.id);
  if (!found) return end(SessionEnding::Kind::closed);
  // Restarted: another program under the same name, with output of its own.
  session_ = *found;
  input_.observe(session_);
  cursor_.reset();
  openedAt_.reset();
  overSince_.reset();
  subscribe();
}

void SessionLink::watchForEnd(const TerminalRuntimeResponse& response) {
  if (!response.session || response.session->running || !cursor_) return;
  if (cursor_->offset < response.session->outputOffset) return;
  if (!overSince_) overSince_ = now_;
  // The terminal of a program that has ended may hold more for a few turns of the service, with or without a
  // process in its foreground. Only a second look at the same place tells that it does not: one that was
  // asked for a while after the first, since whatever else comes may have left the service in the same turn.
  const bool isSamePlace = overAt_ == cursor_->offset;
  const bool isSecondLook = isSamePlace && response.id == inquiry_;
  if ((isSecondLook && !response.foregroundPID) || now_ - *overSince_ > lastOutputDeadline)
    return end(SessionEnding::Kind::exited);
  if (isSamePlace && !isSecondLook) return;
  overAt_ = cursor_->offset;
  inquiry_ = {};
  inquireAt_ = now_ + inquiryPause;
}

void SessionLink::loseConnection() {
  connection_.reset();
  isSubscribed_ = false;
  resize_.reset();
  if (!lostAt_) {
    lostAt_ = now_;
    retryAt_ = now_;
    if (openedAt_) observer_.loseConnection();
  } else {
    retryAt_ = now_ + reconnectPause;
  }
}

void SessionLink::reconnect() {
  // A service that cut off a reader who fell behind is there still.
  if (isPaused_) lostAt_ = now_;
  retryAt_ = now_ + reconnectPause;
  if (isPaused_) return;
  if (now_ - *lostAt_ > reconnectDeadline) return end(SessionEnding::Kind::serviceGone);
  try {
    connect();
  } catch (const Trouble& trouble) {
    connection_.reset();
    const bool isGone = trouble.status == ExitStatus::notRunning && now_ - *lostAt_ > goneDeadline;
    if (isGone) end(SessionEnding::Kind::serviceGone);
  }
}

void SessionLink::end(SessionEnding::Kind kind) {
  const bool isKnown = !session_.running && session_.exitStatus && kind != SessionEnding::Kind::serviceGone;
  ending_ = {isKnown ? SessionEnding::Kind::exited : kind, session_.exitStatus.value_or(-1)};
}

}  // namespace velotide::client
