#include "client/session_input.h"

#include <algorithm>
#include <utility>

#include "protocol/limits.h"

namespace velotide::client {

SessionInput::SessionInput(const TerminalRuntimeSessionInfo& session, std::optional<std::string> owner)
    : session_(session),
      owner_(std::move(owner)),
      ownEpoch_(session.controlEpoch),
      ownNext_(session.nextInputSequence) {}

void SessionInput::add(Kind kind, ByteView bytes) {
  if (bytes.empty()) return;
  // Each answer stays whole and alone.
  const bool joins = kind == Kind::typed && !pieces_.empty() && pieces_.back().kind == kind;
  if (!joins) pieces_.push_back({kind, {}});
  pieces_.back().bytes.append(bytes);
  size_ += bytes.size();
}

std::optional<TerminalRuntimeRequest> SessionInput::next() {
  if (unanswered_ || pieces_.empty()) return std::nullopt;
  if (isStale_) {
    unanswered_ = TerminalRuntimeRequest::make(TerminalRuntimeAction::getAgentState);
    unanswered_->sessionID = session_.id;
    unanswered_->generation = session_.generation;
  } else {
    unanswered_ = inputRequest();
  }
  return unanswered_;
}

TerminalRuntimeRequest SessionInput::inputRequest() {
  const Piece& piece = pieces_.front();
  TerminalRuntimeRequest request = TerminalRuntimeRequest::make(TerminalRuntimeAction::input);
  request.sessionID = session_.id;
  request.generation = session_.generation;
  request.controlEpoch = session_.controlEpoch;
  request.inputSequence = session_.nextInputSequence;
  request.source = piece.kind == Kind::reply ? TerminalRuntimeInputSource::protocolReply
                   : owner_                  ? TerminalRuntimeInputSource::ai
                                             : TerminalRuntimeInputSource::human;
  if (piece.kind != Kind::reply) request.owner = owner_;
  if (expectsNoEcho_ && piece.kind == Kind::typed) request.expectedEchoEnabled = false;
  const ByteView bytes = piece.bytes.view();
  sent_ = std::min(bytes.size(), TerminalRuntimeLimits::maximumOutputBytes);
  request.data = CarriedBytes(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(sent_)));
  return request;
}

bool SessionInput::isAnsweredBy(const TerminalRuntimeResponse& response) const {
  return unanswered_ && unanswered_->id == response.id;
}

SessionInput::Outcome SessionInput::accept(const TerminalRuntimeResponse& response) {
  const TerminalRuntimeRequest request = *std::exchange(unanswered_, std::nullopt);
  if (!response.ok) return refuse(response.error.value_or(""));
  if (request.action == TerminalRuntimeAction::input) {
    if (pieces_.front().kind == Kind::typed) {
      isAnswering_ = true;
      expectsNoEcho_ = false;
    }
    ownEpoch_ = *request.controlEpoch;
    ownNext_ = *request.inputSequence + 1;
    dropFront(sent_);
  }
  if (response.session) observe(*response.session);
  return Outcome::fine;
}

SessionInput::Outcome SessionInput::refuse(std::string_view word) {
  if (word == "control_changed") {
    isStale_ = true;
    if (pieces_.front().kind != Kind::typed) dropFront(sent_);
    return Outcome::fine;
  }
  if (word == "resource_limit" || word == "input_echo_changed") return Outcome::full;
  if (word == "control_owned") {
    const bool isTyped = pieces_.front().kind == Kind::typed;
    dropFront(sent_);
    return isTyped ? Outcome::refusedByOwner : Outcome::fine;
  }
  if (word == "invalid_request") {
    dropFront(sent_);
    return Outcome::fine;
  }
  clear();
  return Outcome::ended;
}

void SessionInput::observe(const TerminalRuntimeSessionInfo& session) {
  // A response that is repeated from the service's memory describes the past.
  if (session.generation != session_.generation) {
    clear();
  } else if (session.revision < session_.revision) {
    return;
  }
  const bool isInFlight = unanswered_ && unanswered_->action == TerminalRuntimeAction::input;
  if (session.controlEpoch != ownEpoch_) {
    ownEpoch_ = session.controlEpoch;
    ownNext_ = session.nextInputSequence;
  } else if (session.nextInputSequence > ownNext_ + (isInFlight ? 1 : 0)) {
    // Input of an agent in control says nothing about where a person sits.
    if (!session.controlOwner) isAnswering_ = false;
    ownNext_ = session.nextInputSequence;
  }
  session_ = session;
  isStale_ = false;
}

void SessionInput::dropFront(std::size_t count) {
  pieces_.front().bytes.consume(count);
  size_ -= count;
  if (pieces_.front().bytes.empty()) pieces_.pop_front();
}

void SessionInput::clear() {
  pieces_.clear();
  size_ = 0;
  unanswered_.reset();
}

}  // namespace velotide::client
