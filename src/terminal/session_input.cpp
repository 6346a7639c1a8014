// Who may type into a session, and how what was typed reaches its terminal.
#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

#include "protocol/limits.h"
#include "protocol/runtime_failure.h"
#include "terminal/pseudo_terminal.h"
#include "terminal/reply_policy.h"
#include "terminal/runtime_session.h"

namespace velotide {

void RuntimeSession::validate(const TerminalRuntimeRequest& request, Need need) const {
  require(request.generation == journal_.generation(), RuntimeFailure::generationChanged);
  if (need == Need::control)
    require(request.controlEpoch == control_.epoch(), RuntimeFailure::controlChanged);
}

bool RuntimeSession::input(const TerminalRuntimeRequest& request) {
  checkInput(request);
  checkExpectations(request);

  control_.consumeInputSequence();
  if (request.source == TerminalRuntimeInputSource::ai) control_.renew(clock_.uptime(), clock_.date());
  changed();

  const bool wasIdle = pendingInput_.empty();
  pendingInput_.append(request.data->head());
  pendingInput_.append(request.data->tail());
  const bool echoed = echoes().value_or(false);
  flushInput();
  return echoed && wasIdle && pendingInput_.empty();
}

// The order of the checks decides which word a request gets that breaks several rules.
void RuntimeSession::checkInput(const TerminalRuntimeRequest& request) const {
  const bool isReply = request.source == TerminalRuntimeInputSource::protocolReply;
  validate(request, isReply ? Need::generation : Need::control);
  require(running() && terminal_.isOpen(), RuntimeFailure::unavailable);

  const std::size_t size = request.data ? request.data->size() : 0;
  require(size > 0 && size <= TerminalRuntimeLimits::maximumOutputBytes, RuntimeFailure::resourceLimit);
  require(pendingInput_.size() + size <= TerminalRuntimeLimits::maximumFrameBytes,
          RuntimeFailure::resourceLimit);

  require(request.source.has_value(), RuntimeFailure::invalidRequest);
  switch (*request.source) {
    case TerminalRuntimeInputSource::human:
      require(!control_.owner(), RuntimeFailure::controlOwned);
      break;
    case TerminalRuntimeInputSource::ai:
      require(control_.owner() && request.owner == control_.owner(), RuntimeFailure::controlChanged);
      break;
    case TerminalRuntimeInputSource::protocolReply:
      require(TerminalRuntimeReplyPolicy::allows(request.data->head()), RuntimeFailure::invalidRequest);
      break;
  }
  require(request.inputSequence == control_.nextInputSequence(), RuntimeFailure::controlChanged);
}

void RuntimeSession::checkExpectations(const TerminalRuntimeRequest& request) const {
  if (request.expectedEchoEnabled) {
    require(echoes() == request.expectedEchoEnabled, RuntimeFailure::inputEchoChanged);
  }
  if (request.expectedForegroundPID) {
    require(foregroundProcessGroup() == request.expectedForegroundPID,
            RuntimeFailure::inputForegroundChanged);
  }
}

void RuntimeSession::flushInput() {
  if (pendingInput_.empty() || !terminal_.isOpen()) return;
  const ByteView pending = pendingInput_.view();
  const ssize_t written = ::write(terminal_.get(), pending.data(), pending.size());
  if (written > 0) pendingInput_.consume(static_cast<std::size_t>(written));
  if (written < 0) require(errno == EAGAIN || errno == EINTR, RuntimeFailure::writeFailed);
}

void RuntimeSession::updateControl(const TerminalRuntimeRequest& request) {
  validate(request, Need::control);
  require(running(), RuntimeFailure::unavailable);
  const std::optional<std::string>& owner = control_.owner();

  if (request.action == TerminalRuntimeAction::releaseControl) {
    require(!request.owner || !owner || request.owner == owner, RuntimeFailure::controlOwned);
    releaseControl();
    return;
  }
  require(request.owner && ControlLease::isOwnerName(*request.owner), RuntimeFailure::invalidRequest);
  if (request.action == TerminalRuntimeAction::renewControl) {
    require(request.owner == owner, RuntimeFailure::controlChanged);
  } else {
    require(!owner || request.owner == owner, RuntimeFailure::controlOwned);
    if (!owner) releaseControl();
  }
  control_.take(*request.owner, clock_.uptime(), clock_.date());
  changed();
}

void RuntimeSession::releaseControl() {
  control_.release();
  pendingInput_.clear();
  changed();
}

void RuntimeSession::resize(const TerminalRuntimeRequest& request) {
  validate(request, Need::generation);
  const bool possible = request.columns && request.rows && running() && terminal_.isOpen();
  require(possible, RuntimeFailure::resizeFailed);
  const auto clamped = [](std::int64_t side) {
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(side, Limits::min(), Limits::max()));
  };
  require(velotide_pty_resize(terminal_.get(), clamped(*request.columns), clamped(*request.rows)) == 0,
          RuntimeFailure::resizeFailed);
  columns_ = *request.columns;
  rows_ = *request.rows;
  changed();
}

}  // namespace velotide
