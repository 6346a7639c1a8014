#include "service/fuzzed_client.h"

#include <fcntl.h>
#include <sys/socket.h>

#include "base/platform.h"
#include "chunks.h"
#include "protocol/transport_frame.h"
#include "service/scripted_terminal.h"
#include "terminal/output_journal.h"

namespace velotide {

FuzzedClient::FuzzedClient(const std::string& socketPath) : socket_(::socket(AF_UNIX, SOCK_STREAM, 0)) {
  platform::suppressBrokenPipeSignal(socket_.get());
  ::fcntl(socket_.get(), F_SETFL, O_NONBLOCK);
  if (platform::connectLocal(socket_.get(), socketPath) != 0) socket_.close();
}

void FuzzedClient::send(const TerminalRuntimeRequest& request) {
  if (!isOpen()) return;
  ByteQueue frame;
  require(encodedTransportFrame(request, frame));
  unanswered_.push_back({request.id, request.action, request.after ? request.after->offset : 0});
  const ssize_t count = platform::sendQuietly(socket_.get(), frame.view());
  // The service takes no more: a frame that is cut off would make the next one another.
  if (count != static_cast<ssize_t>(frame.size())) close();
}

void FuzzedClient::sendRaw(std::string_view text) {
  if (!isOpen()) return;
  isForeseen_ = false;
  platform::sendQuietly(socket_.get(), bytesOf(text));
}

bool FuzzedClient::read(std::size_t most) {
  if (!isOpen()) return false;
  const ssize_t count = ::recv(socket_.get(), incoming_.reserve(most).data(), most, MSG_DONTWAIT);
  if (count > 0) incoming_.commit(static_cast<std::size_t>(count));
  for (std::size_t length; (length = incoming_.text().find('\n')) != std::string_view::npos;) {
    const auto response = decodeResponse(document_, incoming_.mutableText().first(length));
    require(response.has_value());
    take(*response);
    incoming_.consume(length + 1);
  }
  if (count == 0) close();
  return count > 0;
}

void FuzzedClient::take(const TerminalRuntimeResponse& response) {
  const bool isAnswer = !unanswered_.empty() && unanswered_.front().id == response.id;
  // A push carries no features; the answer that begins its subscription does.
  const bool isPush = !response.features && response.action == TerminalRuntimeAction::subscribe;
  if (isPush && (!isAnswer || response.error != "response_too_large")) return takePush(response);
  if (!isForeseen_ && !isAnswer) return;
  require(isAnswer);
  takeAnswer(response);
}

void FuzzedClient::takePush(const TerminalRuntimeResponse& push) {
  require(newest_ == push.id);
  Subscription& subscription = subscriptions_.at(push.id);
  require(subscription.cursor.has_value());
  if (!push.ok) {
    require(push.error == "target_closed");
    subscription.cursor.reset();
    return;
  }
  checkNumbers(push);
  checkOutput(push, subscription.cursor->offset);
  require(push.cursor->generation == subscription.cursor->generation);
  subscription.cursor = push.cursor;
}

void FuzzedClient::takeAnswer(const TerminalRuntimeResponse& answer) {
  const Sent sent = unanswered_.front();
  unanswered_.pop_front();
  require(answer.action == sent.action && answer.ok == !answer.error);
  if (!answer.ok) return;
  if (sent.action == TerminalRuntimeAction::read || sent.action == TerminalRuntimeAction::subscribe) {
    checkNumbers(answer);
    checkOutput(answer, sent.offset);
  }
  if (sent.action == TerminalRuntimeAction::subscribe) {
    newest_ = sent.id;
    subscriptions_[sent.id] = {answer.cursor, answer.session->pid};
  }
}

void FuzzedClient::checkOutput(const TerminalRuntimeResponse& response, std::uint64_t expected) {
  const std::uint64_t end = response.cursor.value().offset;
  const ByteView data = response.data.value().head();
  const std::uint64_t latest = response.latestOffset.value();
  require(data.size() <= TerminalRuntimeLimits::maximumOutputBytes && data.size() <= end && end <= latest);
  const std::uint64_t begin = end - data.size();
  const ScriptedProgram* program = ScriptedTerminals::instance().find(response.session.value().pid);
  require(program != nullptr && response.cursor->generation == response.session->generation);
  require(latest <= program->printed().size());
  require(std::string_view(program->printed()).substr(begin, data.size()) == textOf(data));
  require(response.hasGap.value() == (begin > expected) && begin >= expected);
  // What is left out is no longer held, and nothing else is.
  constexpr auto capacity = static_cast<std::uint64_t>(TerminalRuntimeOutputJournal::defaultCapacity);
  if (begin > expected) require(latest - begin == capacity);
  require(latest == end || !data.empty());
}

void FuzzedClient::checkNumbers(const TerminalRuntimeResponse& response) {
  if (response.eventHead) {
    require(response.eventHead->sequence >= eventHead_);
    eventHead_ = response.eventHead->sequence;
  }
  if (!response.session) return;
  std::uint64_t& revision = revisions_[response.session->generation];
  require(response.session->revision >= revision);
  revision = response.session->revision;
  require(response.session->commands.value().size() <= 8);
}

void FuzzedClient::requireUpToDate() const {
  if (!isOpen() || !newest_ || !isForeseen_) return;
  const Subscription& subscription = subscriptions_.at(*newest_);
  if (!subscription.cursor) return;
  const ScriptedProgram* program = ScriptedTerminals::instance().find(subscription.pid);
  require(program != nullptr && subscription.cursor->offset == program->printed().size());
}

}  // namespace velotide
