#include "soak/steady_client.h"

#include <stdexcept>

#include "end_to_end/json_text.h"
#include "end_to_end/waiting.h"
#include "soak/patience.h"

namespace velotide::bench {
namespace {

constexpr std::size_t shownBytes = 600;

// The part of an answer that its repetition repeats.
std::string_view repeatedPart(std::string_view record) {
  const std::size_t head = record.rfind(R"(,"eventHead":)");
  return record.substr(0, head == std::string_view::npos ? record.rfind(R"(,"features":)") : head);
}

}  // namespace

Reply SteadyClient::ask(std::string_view action, std::string_view fields) {
  id_ = freshUuid();
  action_ = action;
  fields_ = fields;
  return exchange();
}

Reply SteadyClient::exchange() {
  const auto deadline = attendedNow() + soakPatience;
  while (true) {
    try {
      if (!client_) client_.emplace(service_.connect());
      client_->sendAs(id_, action_, fields_);
      return awaitReply();
    } catch (const ConnectionEnded&) {
      client_.reset();
      ++tally_.reconnections;
      if (attendedNow() > deadline) throw;
    }
    pause(std::chrono::milliseconds(10));
  }
}

void SteadyClient::noteSlowest(Clock::time_point sent) {
  const auto taken = std::chrono::duration_cast<std::chrono::milliseconds>(attendedNow() - sent);
  const auto milliseconds = static_cast<std::uint64_t>(taken.count());
  std::uint64_t slowest = tally_.slowestMilliseconds;
  while (slowest < milliseconds && !tally_.slowestMilliseconds.compare_exchange_weak(slowest, milliseconds)) {
  }
}

Reply SteadyClient::awaitReply() {
  const std::string mark = R"("id":)" + jsonText(id_);
  const auto sent = attendedNow();
  const std::string_view record = client_->receive(soakPatience);
  noteSlowest(sent);
  if (record.find(mark) == std::string_view::npos) {
    throw std::runtime_error("expected the answer to " + id_ + ", seen " +
                             std::string(record.substr(0, shownBytes)));
  }
  Reply reply{std::string(record), {}};
  if (record.find(R"("ok":true)") == std::string_view::npos) reply.error = requireText(record, "error");
  return reply;
}

std::string SteadyClient::require(std::string_view action, std::string_view fields) {
  Reply reply = ask(action, fields);
  if (!reply.ok()) {
    throw std::runtime_error(std::string(action) + " was refused: " + reply.error + ", asked with " +
                             fields_.substr(0, shownBytes));
  }
  return std::move(reply.record);
}

void SteadyClient::requireRefusal(std::string_view error, std::string_view action, std::string_view fields) {
  const Reply reply = ask(action, fields);
  if (reply.error != error) {
    throw std::runtime_error(std::string(action) + ": expected the refusal " + std::string(error) +
                             ", seen " + (reply.ok() ? "success" : reply.error));
  }
  ++tally_.refusals;
}

void SteadyClient::repeat(const Reply& first) {
  const Reply second = exchange();
  if (repeatedPart(second.record) != repeatedPart(first.record)) {
    throw std::runtime_error("a repeated " + action_ + " was answered otherwise: expected " +
                             first.record.substr(0, shownBytes) + ", seen " +
                             second.record.substr(0, shownBytes));
  }
  ++tally_.repeats;
}

}  // namespace velotide::bench
