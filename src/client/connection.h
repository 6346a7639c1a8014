#pragma once

#include <cstddef>
#include <optional>

#include "base/byte_queue.h"
#include "base/file_descriptor.h"
#include "base/json_document.h"
#include "protocol/transport_frame.h"

namespace velotide::client {

// One connection to the service: frames out, frames in, never blocking. Whoever owns it polls the descriptor.
// Bounded: at most one unfinished frame and one read rest in memory; a frame longer than a response may be
// throws Trouble, and so does one that is no response.
class Connection {
 public:
  // Takes a connected stream socket and makes it non-blocking.
  explicit Connection(FileDescriptor socket);

  int descriptor() const { return socket_.get(); }
  bool wantsWrite() const { return !outgoing_.empty(); }
  // Whether the service ever answered on it.
  bool hasAnswered() const { return hasAnswered_; }

  // Throws Trouble for a request that no frame can carry.
  void queue(const TerminalRuntimeRequest& request);
  // Writes, and reads once. False when the connection is gone; what came before may still be taken.
  bool flush();
  bool receive();
  // The next complete response that was received.
  std::optional<TerminalRuntimeResponse> next();

 private:
  static constexpr std::size_t readBytes = 128 * 1024;

  FileDescriptor socket_;
  ByteQueue outgoing_;
  ByteQueue incoming_;
  // Bytes at the front of `incoming_` that hold no line feed.
  std::size_t searched_ = 0;
  JsonDocument document_;
  bool hasAnswered_ = false;
};

}  // namespace velotide::client
