#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "base/byte_queue.h"
#include "base/file_descriptor.h"
#include "base/json_document.h"
#include "base/platform.h"
#include "protocol/transport_frame.h"
#include "service/runtime_server.h"
#include "support/manual_clock.h"
#include "support/temporary_directory.h"

namespace velotide {

// A connection to a stepped server, by the records of the protocol.
class SteppedClient {
 public:
  explicit SteppedClient(const std::string& root) : socket_(::socket(AF_UNIX, SOCK_STREAM, 0)) {
    EXPECT_EQ(platform::connectLocal(socket_.get(), root + "/runtime.sock"), 0);
    EXPECT_TRUE(platform::suppressBrokenPipeSignal(socket_.get()));
  }

  void send(const TerminalRuntimeRequest& request) {
    ByteQueue frame;
    EXPECT_TRUE(encodedTransportFrame(request, frame));
    sendRaw(frame.text());
  }
  void sendRaw(std::string_view text) {
    EXPECT_EQ(platform::sendQuietly(socket_.get(), bytesOf(text)), static_cast<ssize_t>(text.size()));
  }

  // Takes what the server has sent so far, one frame a call; nothing when no whole frame is there.
  std::optional<TerminalRuntimeResponse> receive() {
    for (;;) {
      const ssize_t count = ::recv(socket_.get(), received_.reserve(65536).data(), 65536, MSG_DONTWAIT);
      if (count == 0) closed_ = true;
      if (count <= 0) break;
      received_.commit(static_cast<std::size_t>(count));
    }
    const std::size_t length = received_.text().find('\n');
    if (length == std::string_view::npos) return std::nullopt;
    auto response = decodeResponse(document_, received_.mutableText().first(length));
    received_.consume(length + 1);
    EXPECT_TRUE(response) << "not a response";
    return response;
  }

  bool isClosed() {
    receive();
    return closed_;
  }

 private:
  FileDescriptor socket_;
  ByteQueue received_;
  JsonDocument document_;
  bool closed_ = false;
};

// A whole server whose turns a test takes one by one and whose time it moves.
class SteppedServer : public testing::Test {
 protected:
  SteppedServer() {
    std::ifstream file(root.path() + "/ui-capability");
    capability.assign(std::istreambuf_iterator<char>(file), {});
  }

  void turns(int count) {
    for (int each = 0; each < count; ++each) running = server.turn(0);
  }

  // Turns until `condition` holds; for what the kernel or a child has to do meanwhile.
  void turnUntil(const std::function<bool()>& condition) {
    for (int each = 0; each < 4000; ++each) {
      if (condition()) return;
      running = server.turn(5);
    }
    ADD_FAILURE() << "the condition never held";
  }

  TerminalRuntimeRequest request(TerminalRuntimeAction action) const {
    TerminalRuntimeRequest made = TerminalRuntimeRequest::make(action);
    made.capability = capability;
    return made;
  }
  TerminalRuntimeRequest request(TerminalRuntimeAction action,
                                 const TerminalRuntimeSessionInfo& session) const {
    TerminalRuntimeRequest made = request(action);
    made.sessionID = session.id;
    made.generation = session.generation;
    made.controlEpoch = session.controlEpoch;
    return made;
  }

  TerminalRuntimeResponse answer(SteppedClient& client, const TerminalRuntimeRequest& asked) {
    client.send(asked);
    return next(client);
  }
  TerminalRuntimeResponse next(SteppedClient& client) {
    std::optional<TerminalRuntimeResponse> response;
    turnUntil([&] { return (response = client.receive()).has_value(); });
    return response.value_or(TerminalRuntimeResponse{});
  }

  TerminalRuntimeSessionInfo create(SteppedClient& client, const std::string& script) {
    TerminalRuntimeRequest asked = request(TerminalRuntimeAction::create);
    asked.launch.emplace();
    asked.launch->executable = "/bin/sh";
    asked.launch->arguments = {"-c", script};
    asked.launch->environment = {{"PATH", "/usr/bin:/bin"}};
    asked.launch->directory = "/";
    const TerminalRuntimeResponse response = answer(client, asked);
    EXPECT_TRUE(response.session) << response.error.value_or("");
    return response.session.value_or(TerminalRuntimeSessionInfo{});
  }

  // A fresh connection for a single answer, so that idle deadlines do not get in the way.
  TerminalRuntimeResponse ask(const TerminalRuntimeRequest& asked) {
    SteppedClient client(root.path());
    return answer(client, asked);
  }

  TemporaryDirectory root;
  ManualClock clock;
  RuntimeServer server{root.path(), clock};
  std::string capability;
  bool running = true;
};

}  // namespace velotide
