#include "service/runtime_server.h"

#include <errno.h>
#include <signal.h>

#include <algorithm>
#include <span>
#include <utility>

#include "base/platform.h"
#include "protocol/limits.h"
#include "protocol/runtime_failure.h"
#include "protocol/transport_frame.h"
#include "service/subscriptions.h"
#include "terminal/pseudo_terminal.h"

namespace velotide {

namespace {

constexpr int acceptsPerTurn = 8;
constexpr int framesPerCall = 8;
// Of a terminal that prints alone: while one part is taken, the system already fills in behind it, where a
// read of everything would have the two wait for each other.
constexpr OutputReading aloneReading{8192, 640};
// The more a turn has to poll, the more it must take to be worth it.
constexpr std::size_t bytesPerDescriptor = 1024;
constexpr std::size_t mostOfOneTerminal = 65536;
constexpr OutputReading sharedReading{4096, 4096};
// Whoever asks waits for no more than this.
constexpr OutputReading conversationReading{1024, 1024};
constexpr Seconds refusalPause = 0.1;
constexpr Seconds roundLength = 0.002;
// Records that live for hours lie between buffers that lived for a moment. Giving back more often would only
// take the same pages again.
constexpr Seconds memoryInterval = 2;
// Whoever asked within this span may be typing.
constexpr Seconds conversationPause = 0.01;

}  // namespace

RuntimeServer::RuntimeServer(const std::string& root, const Clock& clock)
    : state_(root, clock), dispatch_(state_) {}

void RuntimeServer::run() {
  while (turn()) {
  }
}

bool RuntimeServer::turn(int milliseconds) {
  for (const auto& [id, session] : state_.sessions) session->expire();
  if (beginsRound()) {
    for (const auto& [id, session] : state_.sessions) session->noticeExit();
    reapRetired();
    state_.tools.process(state_.clock.date());
    giveBackMemory();
  }
  buildPollSet();
  const int patience = hasMoreToPush_ ? 0 : echoes_.patience(milliseconds);
  const int ready = ::poll(pollSet_.data(), static_cast<nfds_t>(pollSet_.size()), patience);
  wasIdle_ = ready == 0 && !hasMoreToPush_;
  if (wasIdle_) echoes_.foundNothing(state_.clock.uptime());
  if (ready < 0) {
    if (errno == EINTR) return true;
    throw Failure(RuntimeFailure::unavailable);
  }
  if ((pollSet_.front().revents & POLLIN) != 0) acceptClients();
  serveDescriptors();
  echoes_.endTurn(state_.clock.uptime());
  publishSubscriptions();
  sendFreshOutput();
  expireClients();
  return !hasDrained();
}

// A busy service turns thousands of times a second; each of them need not ask the system for every child and
// for the mailbox.
bool RuntimeServer::beginsRound() {
  const Uptime now = state_.clock.uptime();
  if (!wasIdle_ && now - roundBegan_ < roundLength) return false;
  roundBegan_ = now;
  return true;
}

void RuntimeServer::giveBackMemory() {
  if (roundBegan_ - gaveBackAt_ < memoryInterval) return;
  platform::giveBackFreedMemory();
  gaveBackAt_ = roundBegan_;
}

void RuntimeServer::reapRetired() {
  const Uptime now = state_.clock.uptime();
  std::erase_if(state_.retired, [now](const RetiredChild& child) {
    std::int32_t status = 0;
    if (velotide_pty_poll_exit(child.pid, &status) != 0) return true;
    if (child.deadline < now) ::kill(child.pid, SIGKILL);
    return false;
  });
}

void RuntimeServer::buildPollSet() {
  pollSet_.clear();
  const bool accepting = acceptAfter_ <= state_.clock.uptime();
  pollSet_.push_back({state_.socket.fd(), static_cast<short>(accepting ? POLLIN : 0), 0});
  pollClients();
  pollSessions();
}

void RuntimeServer::pollClients() {
  echoes_.begin();
  for (const auto& [fd, client] : clients_) {
    const bool awaitsEcho = std::exchange(client->awaitsEcho, false) && client->subscription;
    const bool isWriting = !client->outgoing.empty() && !awaitsEcho;
    pollSet_.push_back({fd, static_cast<short>(isWriting ? POLLIN | POLLOUT : POLLIN), 0});
    if (awaitsEcho) echoes_.await(client->subscription->sessionID);
  }
  polledClients_ = clients_.size();
}

void RuntimeServer::pollSessions() {
  polledSessions_.clear();
  const Uptime now = state_.clock.uptime();
  for (const auto& [id, session] : state_.sessions) {
    if (session->fd() < 0 || echoes_.holdsBack(id, now)) continue;
    pollSet_.push_back(
        {session->fd(), static_cast<short>(session->hasPendingInput() ? POLLIN | POLLOUT : POLLIN), 0});
    polledSessions_.push_back(id);
  }
}

void RuntimeServer::acceptClients() {
  const Uptime now = state_.clock.uptime();
  for (int count = 0; count < acceptsPerTurn; ++count) {
    RuntimeSocket::Accepted accepted = state_.socket.acceptClient();
    if (accepted.refused) acceptAfter_ = now + refusalPause;
    if (!accepted.connection.isOpen()) return;
    if (clients_.size() >= TerminalRuntimeLimits::maximumClients) continue;
    const int fd = accepted.connection.get();
    clients_[fd] = std::make_unique<RuntimeClient>(std::move(accepted.connection), now);
  }
}

// A terminal that prints without end would make every turn long.
OutputReading RuntimeServer::readingOfEachTerminal() const {
  if (state_.clock.uptime() - requestedAt_ <= conversationPause) return conversationReading;
  const auto isReady = [](const pollfd& entry) { return entry.revents != 0; };
  const auto terminals = std::span(pollSet_).subspan(1 + polledClients_);
  if (std::ranges::count_if(terminals, isReady) > 1) return sharedReading;
  return {std::min(aloneReading.bytes + bytesPerDescriptor * pollSet_.size(), mostOfOneTerminal),
          aloneReading.atOnce};
}

void RuntimeServer::serveDescriptors() {
  echoes_.begin();
  // Clients are removed by the expiry pass alone, so the polled ones are still there.
  for (std::size_t index = 1; index <= polledClients_; ++index) {
    const pollfd& entry = pollSet_[index];
    if (entry.revents != 0) serveClient(*clients_.at(entry.fd), entry.revents);
  }
  const OutputReading reading = readingOfEachTerminal();
  const Uptime now = state_.clock.uptime();
  for (std::size_t index = 0; index < polledSessions_.size(); ++index) {
    const pollfd& entry = pollSet_[1 + polledClients_ + index];
    if (entry.revents == 0 || echoes_.holdsBack(polledSessions_[index], now)) continue;
    // A request served above may have closed the session or put another one in its place.
    RuntimeSession* session = state_.find(polledSessions_[index]);
    if (session != nullptr && session->fd() == entry.fd) serveSession(*session, entry.revents, reading);
  }
}

void RuntimeServer::serveClient(RuntimeClient& client, short events) {
  if ((events & (POLLERR | POLLNVAL)) != 0) return client.disconnect("socket_error");
  const Uptime now = state_.clock.uptime();
  if ((events & (POLLIN | POLLHUP)) != 0 && client.receive(now)) {
    requestedAt_ = now;
    if (client.incoming.size() > TerminalRuntimeLimits::maximumFrameBytes) {
      return client.disconnect("request_too_large");
    }
    processFrames(client);
  }
  if ((events & POLLOUT) != 0) client.send(state_.clock.uptime());
}

void RuntimeServer::serveSession(RuntimeSession& session, short events, OutputReading reading) {
  try {
    if ((events & (POLLIN | POLLERR | POLLHUP)) != 0) session.readOutput(reading);
    if ((events & POLLOUT) != 0) session.flushInput();
  } catch (const std::exception&) {
    // The terminal is unusable, but for what it still holds; the record stays, and its child's end is seen by
    // later refreshes.
    session.drainOutput(RuntimeSession::lastOutput);
    session.close();
  }
}

void RuntimeServer::processFrames(RuntimeClient& client) {
  for (int count = 0; count < framesPerCall; ++count) {
    const std::size_t length = client.incoming.text().find('\n');
    if (length == std::string_view::npos) return;
    const auto request = decodeRequest(document_, client.incoming.mutableText().first(length));
    if (!request) {
      // What follows a frame that is none cannot be trusted either.
      client.incoming.clear();
      return client.disconnect("invalid_frame");
    }
    client.incoming.consume(length + 1);
    client.lastAction = request->action;
    const TerminalRuntimeResponse response = dispatch_.perform(*request);
    const Uptime now = state_.clock.uptime();
    client.awaitsEcho = client.outgoing.empty() && request->action == TerminalRuntimeAction::input &&
                        response.ok && client.subscription &&
                        client.subscription->sessionID == request->sessionID;
    if (client.awaitsEcho) echoes_.await(*request->sessionID);
    client.enqueue(response, now);
    if (response.ok && request->action == TerminalRuntimeAction::subscribe) {
      client.subscription = subscriptionFrom(*request, response, now);
    }
    if (client.isDisconnected()) return;
  }
}

void RuntimeServer::publishSubscriptions() {
  const Uptime now = state_.clock.uptime();
  for (const auto& [fd, client] : clients_) {
    if (client->subscription) publishSubscription(*client, state_, now);
  }
}

// What this turn queued goes out in it, instead of waiting for the next poll to say that the socket is
// writable. A client that is gone is left to that poll: what it sent before it went is still read.
void RuntimeServer::sendFreshOutput() {
  const Uptime now = state_.clock.uptime();
  hasMoreToPush_ = false;
  for (const auto& [fd, client] : clients_) {
    if (client->outgoing.empty() || client->awaitsEcho || client->isDisconnected()) continue;
    client->trySend(now);
    // What a client does not take at once is left to the poll.
    const bool isBehind = client->subscription && client->subscription->isBehind;
    if (isBehind && client->outgoing.empty()) hasMoreToPush_ = true;
  }
}

void RuntimeServer::expireClients() {
  expiring_.clear();
  const Uptime now = state_.clock.uptime();
  for (const auto& [fd, client] : clients_) {
    // Before the look at the disconnect: a client that is to go still has the one complete request carried
    // out that it managed to send.
    if (!client->incoming.empty()) processFrames(*client);
    const Seconds idle = now - client->lastProgress;
    if (!client->isDisconnected() && !isExpired(*client, idle)) continue;
    removeClient(*client, idle);
    expiring_.push_back(fd);
  }
  for (const int fd : expiring_) clients_.erase(fd);
}

bool RuntimeServer::isExpired(const RuntimeClient& client, Seconds idle) const {
  const Seconds deadline = client.subscription ? TerminalRuntimeLimits::subscriptionWriteDeadline
                                               : TerminalRuntimeLimits::requestDeadline;
  return idle > deadline && (!client.outgoing.empty() || !client.subscription);
}

// Notes how the client ended, unless that is how clients ordinarily end.
void RuntimeServer::removeClient(const RuntimeClient& client, Seconds idle) {
  const std::string reason =
      client.disconnectReason.value_or(client.outgoing.empty() ? "idle_deadline" : "write_deadline");
  if (reason == "peer_closed" || reason == "idle_deadline") return;
  state_.disconnects.push_back({reason, client.lastAction, client.subscription.has_value(),
                                static_cast<std::int64_t>(client.outgoing.size()), std::max(idle, 0.0)});
  if (state_.disconnects.size() > RuntimeServiceState::maximumDisconnects) state_.disconnects.pop_front();
}

bool RuntimeServer::hasDrained() const {
  return state_.shutdownRequested && state_.sessions.empty() && state_.retired.empty() &&
         state_.tools.isIdle() &&
         std::ranges::all_of(clients_, [](const auto& entry) { return entry.second->outgoing.empty(); });
}

}  // namespace velotide
