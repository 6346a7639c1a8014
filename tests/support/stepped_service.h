#pragma once

#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "base/platform.h"
#include "protocol/transport_frame.h"
#include "service/runtime_server.h"
#include "support/manual_clock.h"
#include "support/temporary_directory.h"

namespace velotide {

// The service in this process: the test turns its loop and moves its clock.
class SteppedService {
 public:
  virtual ~SteppedService() = default;

  void turn(int count = 1) {
    for (int each = 0; each < count; ++each) running_ = pass(0);
  }
  // False once an orderly shutdown has drained.
  bool isRunning() const { return running_; }
  // What the end of the process does.
  void end() { server_.reset(); }
  // Turns until the condition holds; throws after seconds of the real time.
  void turnUntil(auto condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("turned in vain");
      running_ = pass(5);
    }
  }
  std::string root() const { return directory_.path() + "/root"; }

  TerminalRuntimeRequest make(TerminalRuntimeAction action) const {
    TerminalRuntimeRequest request = TerminalRuntimeRequest::make(action);
    request.capability = capability_;
    return request;
  }
  // About a session as it was last seen.
  TerminalRuntimeRequest make(TerminalRuntimeAction action, const TerminalRuntimeSessionInfo& session) const {
    TerminalRuntimeRequest request = make(action);
    request.sessionID = session.id;
    request.generation = session.generation;
    request.controlEpoch = session.controlEpoch;
    request.inputSequence = session.nextInputSequence;
    return request;
  }
  TerminalRuntimeRequest typed(const TerminalRuntimeSessionInfo& session, std::string_view text) const {
    TerminalRuntimeRequest request = make(TerminalRuntimeAction::input, session);
    request.source = TerminalRuntimeInputSource::human;
    request.data = CarriedBytes(Bytes(text.begin(), text.end()));
    return request;
  }
  // Of a session that runs the script.
  TerminalRuntimeRequest creation(const std::string& script) const {
    TerminalRuntimeRequest request = make(TerminalRuntimeAction::create);
    request.launch.emplace();
    request.launch->executable = "/bin/sh";
    request.launch->arguments = {"-c", script};
    request.launch->environment = {{"PATH", "/usr/bin:/bin"}};
    request.launch->directory = "/";
    return request;
  }

  ManualClock clock;

 protected:
  // One turn of the loop.
  virtual bool pass(int milliseconds) { return server_->turn(milliseconds); }

 private:
  TemporaryDirectory directory_;
  std::optional<RuntimeServer> server_{std::in_place, root(), clock};
  std::string capability_{std::istreambuf_iterator(std::ifstream(root() + "/ui-capability").rdbuf()), {}};
  bool running_ = true;
};

// One connection to it. Requests go through the socket; nothing is read unless asked.
class SteppedClient {
 public:
  explicit SteppedClient(SteppedService& service, int turns = 1) : service_(service) { connect(turns); }

  // Anew, where the service dropped the connection.
  void connect(int turns = 1) {
    socket_ = FileDescriptor(::socket(AF_UNIX, SOCK_STREAM, 0));
    if (platform::connectLocal(socket_.get(), service_.root() + "/runtime.sock") != 0)
      throw std::runtime_error("cannot connect");
    platform::suppressBrokenPipeSignal(socket_.get());
    service_.turn(turns);
  }

  void send(const TerminalRuntimeRequest& request) {
    ByteQueue frame;
    encodedTransportFrame(request, frame);
    sendRaw(frame.text());
  }
  void sendRaw(std::string_view text) { platform::sendQuietly(socket_.get(), bytesOf(text)); }
  // The answer; what else arrived waits to be taken.
  TerminalRuntimeResponse request(const TerminalRuntimeRequest& request) {
    send(request);
    return next(request.id);
  }
  TerminalRuntimeResponse next(const std::optional<Uuid>& id = {}) {
    std::optional<TerminalRuntimeResponse> found;
    service_.turnUntil([&] { return (found = take(id)).has_value(); });
    return *found;
  }
  // What arrived first and was not taken yet, of all or of what has this ID.
  std::optional<TerminalRuntimeResponse> take(const std::optional<Uuid>& id = {}) {
    while (receive()) continue;
    const auto found = std::ranges::find_if(received_, [&](const auto& one) { return !id || one.id == *id; });
    if (found == received_.end()) return std::nullopt;
    std::optional taken = std::move(*found);
    received_.erase(found);
    return taken;
  }
  bool isClosed() {
    while (receive()) continue;
    return closed_;
  }

 private:
  bool receive() {
    const auto room = incoming_.reserve(65536);
    const ssize_t count = ::recv(socket_.get(), room.data(), room.size(), MSG_DONTWAIT);
    closed_ |= count == 0;
    if (count > 0) incoming_.commit(static_cast<std::size_t>(count));
    const std::size_t length = incoming_.text().find('\n');
    if (length == std::string_view::npos) return false;
    received_.push_back(decodeResponse(document_, incoming_.mutableText().first(length)).value());
    incoming_.consume(length + 1);
    return true;
  }

  SteppedService& service_;
  FileDescriptor socket_;
  JsonDocument document_;
  ByteQueue incoming_;
  std::deque<TerminalRuntimeResponse> received_;
  bool closed_ = false;
};

}  // namespace velotide
