#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "base/byte_queue.h"
#include "base/file_descriptor.h"
#include "base/json_document.h"
#include "protocol/runtime_request.h"
#include "protocol/runtime_response.h"

namespace velotide {

// One client of the service under test. Whatever it is sent it holds against what it asked and against what
// the programs printed: answers in the order of the requests, output without a hole that is not told,
// numbers that never fall.
class FuzzedClient {
 public:
  // Without room among the waiting connections it is closed from the start.
  explicit FuzzedClient(const std::string& socketPath);

  bool isOpen() const { return socket_.isOpen(); }
  void close() { socket_.close(); }
  void send(const TerminalRuntimeRequest& request);
  // What is no request, or only the beginning of one; the answers to what follows are not foreseen.
  void sendRaw(std::string_view text);
  // Takes what has arrived, at most `most` bytes. Whether there was anything.
  bool read(std::size_t most = 65536);
  // What every subscription was sent must then reach to the end of what its program printed.
  void requireUpToDate() const;

 private:
  struct Sent {
    Uuid id;
    TerminalRuntimeAction action;
    // Where the output that was asked for begins.
    std::uint64_t offset = 0;
  };
  // How far a subscription was sent its output; none once it has ended.
  struct Subscription {
    std::optional<TerminalRuntimeOutputCursor> cursor;
    std::int32_t pid = 0;
  };

  void take(const TerminalRuntimeResponse& response);
  void takePush(const TerminalRuntimeResponse& push);
  void takeAnswer(const TerminalRuntimeResponse& answer);
  static void checkOutput(const TerminalRuntimeResponse& response, std::uint64_t expected);
  void checkNumbers(const TerminalRuntimeResponse& response);

  FileDescriptor socket_;
  ByteQueue incoming_;
  JsonDocument document_;
  std::deque<Sent> unanswered_;
  // The newest one alone is served; what an earlier one was still sent comes before it.
  std::map<Uuid, Subscription> subscriptions_;
  std::optional<Uuid> newest_;
  std::uint64_t eventHead_ = 0;
  std::map<Uuid, std::uint64_t> revisions_;
  bool isForeseen_ = true;
};

}  // namespace velotide
