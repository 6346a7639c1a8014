#include "client/connection.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "base/platform.h"
#include "client/trouble.h"
#include "protocol/limits.h"

namespace velotide::client {

namespace {

bool isPassing(int error) { return error == EAGAIN || error == EINTR || error == EWOULDBLOCK; }

}  // namespace

Connection::Connection(FileDescriptor socket) : socket_(std::move(socket)) {
  ::fcntl(socket_.get(), F_SETFL, O_NONBLOCK);
}

void Connection::queue(const TerminalRuntimeRequest& request) {
  const std::size_t before = outgoing_.size();
  if (encodedTransportFrame(request, outgoing_) &&
      outgoing_.size() - before <= TerminalRuntimeLimits::maximumFrameBytes)
    return;
  outgoing_.dropBack(outgoing_.size() - before);
  throw Trouble("The request exceeds 128 KiB. Shorten the command line or the environment.");
}

bool Connection::flush() {
  while (!outgoing_.empty()) {
    const ssize_t sent = platform::sendQuietly(socket_.get(), outgoing_.view());
    if (sent < 0) return isPassing(errno);
    outgoing_.consume(static_cast<std::size_t>(sent));
  }
  return true;
}

bool Connection::receive() {
  const std::span<std::uint8_t> room = incoming_.reserve(readBytes);
  const ssize_t count = ::read(socket_.get(), room.data(), room.size());
  if (count < 0) return isPassing(errno);
  incoming_.commit(static_cast<std::size_t>(count));
  return count > 0;
}

std::optional<TerminalRuntimeResponse> Connection::next() {
  const std::size_t end = incoming_.text().find('\n', searched_);
  if (end == std::string_view::npos) {
    searched_ = incoming_.size();
    if (searched_ > TerminalRuntimeLimits::maximumResponseBytes + 1)
      throw Trouble("What answers is no service of this kind. Check --root and VELOTIDE_ROOT.");
    return std::nullopt;
  }
  std::optional<TerminalRuntimeResponse> response =
      decodeResponse(document_, incoming_.mutableText().first(end));
  incoming_.consume(end + 1);
  searched_ = 0;
  if (!response || response->protocolVersion != TerminalRuntimeLimits::protocolVersion)
    throw Trouble(explain("incompatible_protocol"));
  hasAnswered_ = true;
  return response;
}

}  // namespace velotide::client
