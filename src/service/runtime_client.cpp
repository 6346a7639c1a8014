#include "service/runtime_client.h"

#include <errno.h>
#include <unistd.h>

#include "base/platform.h"
#include "protocol/limits.h"
#include "protocol/transport_frame.h"

namespace velotide {

namespace {

constexpr std::size_t readBytes = 16384;

bool isTransient(int error) { return error == EAGAIN || error == EINTR; }

}  // namespace

void RuntimeClient::disconnect(std::string_view reason) {
  if (!disconnectReason) disconnectReason = reason;
}

bool RuntimeClient::receive(Uptime now) {
  const ssize_t count = ::read(fd(), incoming.reserve(readBytes).data(), readBytes);
  if (count == 0) disconnect("peer_closed");
  if (count < 0 && !isTransient(errno)) disconnect("read_failed");
  if (count <= 0) return false;
  incoming.commit(static_cast<std::size_t>(count));
  lastProgress = now;
  return true;
}

bool RuntimeClient::trySend(Uptime now) {
  const ssize_t count = platform::sendQuietly(fd(), outgoing.view());
  if (count > 0) {
    outgoing.consume(static_cast<std::size_t>(count));
    lastProgress = now;
  }
  return count >= 0 || isTransient(errno);
}

void RuntimeClient::send(Uptime now) {
  if (!trySend(now)) disconnect("write_failed");
}

void RuntimeClient::enqueue(const TerminalRuntimeResponse& response, Uptime now) {
  const std::size_t before = outgoing.size();
  if (!encodedTransportFrame(response, outgoing)) return disconnect("encode_failed");
  if (outgoing.size() > TerminalRuntimeLimits::maximumClientQueueBytes) {
    outgoing.dropBack(outgoing.size() - before);
    return disconnect("output_backpressure");
  }
  if (before == 0) lastProgress = now;
}

}  // namespace velotide
