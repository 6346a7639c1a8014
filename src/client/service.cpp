#include "client/service.h"

#include <poll.h>

#include <algorithm>

#include "client/service_start.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

// How long a service that has all the clients it takes is asked again.
constexpr Seconds overloadDeadline = 5;

}  // namespace

Service::Service(ServiceRoot root, const Notices& notices, Seconds answerDeadline)
    : root_(std::move(root)), notices_(notices), answerDeadline_(answerDeadline) {}

void Service::ensureRuns() { ensureServiceRuns(root_, notices_); }

TerminalRuntimeResponse Service::ask(TerminalRuntimeRequest request) {
  // First the connection, whose failure tells most.
  bool isFresh = !connection_;
  if (isFresh) connection_.emplace(root_.connect());
  authorize(request);
  bool hasRenewed = false;
  Patience patience(notices_, "a free place at the service, which has all the clients it takes",
                    std::min(overloadDeadline, answerDeadline_));
  for (;;) {
    if (!connection_) {
      connection_.emplace(root_.connect());
      isFresh = true;
    }
    std::optional<TerminalRuntimeResponse> response = exchange(request);
    if (!response) {
      connection_.reset();
      // An idle connection is closed by the service as a matter of course; a fresh one only when it is full.
      if (!isFresh) continue;
      if (patience.isSpent())
        throw Trouble(
            "The service is overloaded: it closes new connections, having all it takes (32). "
            "Detach some clients, then try again.");
      patience.pause();
    } else if (response->error == "invalid_capability" && !hasRenewed) {
      authorize(request, true);
      hasRenewed = true;
    } else {
      return std::move(*response);
    }
  }
}

TerminalRuntimeResponse Service::call(const TerminalRuntimeRequest& request) {
  TerminalRuntimeResponse response = ask(request);
  if (!response.ok) throw Trouble(explain(response.error.value_or("")));
  return response;
}

std::optional<TerminalRuntimeResponse> Service::exchange(const TerminalRuntimeRequest& request) {
  Patience patience(notices_, "the service to answer", answerDeadline_);
  connection_->queue(request);
  while (!patience.isSpent()) {
    if (!connection_->flush()) return std::nullopt;
    const short events = connection_->wantsWrite() ? POLLIN | POLLOUT : POLLIN;
    if (!waitFor(connection_->descriptor(), events, std::min(patience.left(), 1.0))) continue;
    const bool open = connection_->receive();
    while (std::optional<TerminalRuntimeResponse> response = connection_->next()) {
      if (response->id == request.id) return response;
    }
    if (!open) return std::nullopt;
  }
  connection_.reset();
  throw Trouble(
      "The service does not answer. Find it with `pgrep -f velotide-runtime`, and continue (SIGCONT) "
      "or end it.");
}

std::vector<TerminalRuntimeSessionInfo> Service::sessions() {
  return call(TerminalRuntimeRequest::make(TerminalRuntimeAction::list))
      .sessions.value_or(std::vector<TerminalRuntimeSessionInfo>());
}

std::optional<TerminalRuntimeSessionInfo> Service::session(const Uuid& id) {
  for (TerminalRuntimeSessionInfo& session : sessions()) {
    if (session.id == id) return std::move(session);
  }
  return std::nullopt;
}

TerminalRuntimeRequest Service::about(const TerminalRuntimeSessionInfo& session,
                                      TerminalRuntimeAction action) {
  TerminalRuntimeRequest request = TerminalRuntimeRequest::make(action);
  request.sessionID = session.id;
  request.generation = session.generation;
  request.controlEpoch = session.controlEpoch;
  return request;
}

void Service::authorize(TerminalRuntimeRequest& request, bool renew) {
  if (renew || capability_.empty()) capability_ = root_.capability();
  request.capability = capability_;
}

bool Service::waitForEnd(Seconds limit) {
  Patience patience(notices_, "the service to end", limit);
  while (connection_ && !patience.isSpent()) {
    if (waitFor(connection_->descriptor(), POLLIN, std::min(patience.left(), 1.0)) && !connection_->receive())
      connection_.reset();
  }
  return !connection_;
}

}  // namespace velotide::client
