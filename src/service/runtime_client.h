#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/byte_queue.h"
#include "base/file_descriptor.h"
#include "base/time.h"
#include "protocol/runtime_request.h"
#include "protocol/runtime_response.h"

namespace velotide {

// What a subscriber was last sent, and so what is news to it.
struct OutputSubscription {
  // Of the subscribing request.
  Uuid requestID;
  Uuid sessionID;
  std::optional<TerminalRuntimeOutputCursor> cursor;
  // The journal held more behind the cursor.
  bool isBehind = false;
  std::optional<bool> running;
  std::optional<TerminalAgentSnapshot> agent;
  std::optional<Uuid> controlEpoch;
  std::optional<Date> controlExpiresAt;
  Uptime publishedAt;
  std::vector<TerminalAttentionItem> attention;
  // Where agent and items stood when they were last compared: equal numbers spare the comparison.
  std::optional<std::uint64_t> agentEvidence;
  std::optional<std::uint64_t> attentionRevision;
};

// One connection: received bytes that are not yet requests, frames that are not yet written, and the
// subscription. Bounded: see TerminalRuntimeLimits; a client that goes past a bound is disconnected, which
// marks it until the server's next expiry pass removes it.
class RuntimeClient {
 public:
  RuntimeClient(FileDescriptor connection, Uptime now)
      : lastProgress(now), connection_(std::move(connection)) {}

  int fd() const { return connection_.get(); }

  void disconnect(std::string_view reason);
  bool isDisconnected() const { return disconnectReason.has_value(); }

  // Moves a bounded amount of received bytes into `incoming`; disconnects on an error or the peer's end.
  // True when there were any.
  bool receive(Uptime now);
  // Writes as much of `outgoing` as the socket takes in one call; disconnects on an error.
  void send(Uptime now);
  // The same without the disconnect: false on an error.
  bool trySend(Uptime now);
  // Queues the response's frame, or disconnects when there is no room for it.
  void enqueue(const TerminalRuntimeResponse& response, Uptime now);

  ByteQueue incoming;
  ByteQueue outgoing;
  // When bytes were last read, written, or queued behind nothing.
  Uptime lastProgress;
  std::optional<OutputSubscription> subscription;
  // The first reason given.
  std::optional<std::string> disconnectReason;
  std::optional<TerminalRuntimeAction> lastAction;
  // Somebody types: the answer waits for one more turn, in which the echo mostly comes, so that both go out
  // in one write and wake the client once.
  bool awaitsEcho = false;

 private:
  FileDescriptor connection_;
};

}  // namespace velotide
