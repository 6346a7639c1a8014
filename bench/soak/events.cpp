#include <stdexcept>

#include "end_to_end/json_text.h"
#include "soak/visitors.h"

namespace velotide::bench {

EventReader::EventReader(const ServiceProcess& service, Tally& tally, std::uint64_t seed)
    : tally_(tally), random_(seed), client_(service, tally) {}

void EventReader::act() {
  if (epoch_.empty()) begin();
  readEvents();
  if (random_.oneIn(20)) acknowledge();
  // Mostly fast enough for the log, sometimes not.
  pause(std::chrono::milliseconds(random_.oneIn(200) ? 2000 : random_.below(30)));
}

void EventReader::begin() {
  const std::string record = client_.require("readEvents");
  const std::string_view cursor = std::string_view(record).substr(record.find(R"("nextCursor":)"));
  epoch_ = requireText(cursor, "appEpoch");
  sequence_ = requireNumber(cursor, "sequence");
}

void EventReader::readEvents() {
  const std::uint64_t limit = random_.between(1, 1000);
  const Reply reply =
      client_.ask("readEvents", R"(,"eventAfter":{"appEpoch":)" + jsonText(epoch_) + R"(,"sequence":)" +
                                    std::to_string(sequence_) + R"(},"eventLimit":)" + std::to_string(limit));
  if (reply.error == "cursor_expired") {
    ++tally_.expiredCursors;
    return begin();
  }
  if (!reply.ok()) throw std::runtime_error("readEvents was refused: " + reply.error);
  const std::string mark = R"({"cursor":{"appEpoch":)" + jsonText(epoch_) + R"(,"sequence":)";
  for (std::size_t at = reply.record.find(mark); at != std::string::npos;
       at = reply.record.find(mark, at + 1)) {
    const std::uint64_t seen = requireNumber(std::string_view(reply.record).substr(at), "sequence");
    if (seen != sequence_ + 1) {
      throw std::runtime_error("expected event " + std::to_string(sequence_ + 1) + ", seen " +
                               std::to_string(seen));
    }
    sequence_ = seen;
    ++tally_.events;
  }
  const std::size_t next = reply.record.find(R"("nextCursor":)");
  if (requireNumber(std::string_view(reply.record).substr(next), "sequence") != sequence_) {
    throw std::runtime_error("events do not reach to their cursor");
  }
}

// Somebody else may have changed or resolved the item by then.
void EventReader::acknowledge() {
  const std::string record = client_.require("listAttention");
  std::size_t at = record.find(R"("attention":[{"id":)");
  for (std::uint64_t skipped = random_.below(8); at != std::string::npos && skipped > 0; --skipped) {
    const std::size_t next = record.find(R"({"id":)", at + 20);
    if (next != std::string::npos) at = next;
  }
  if (at == std::string::npos) return;
  const std::string_view item = std::string_view(record).substr(at);
  const Reply reply = client_.ask(
      "acknowledgeAttention", R"(,"attentionID":)" + jsonText(requireText(item, "id")) +
                                  R"(,"attentionVersion":)" + std::to_string(requireNumber(item, "version")));
  if (!reply.ok() && reply.error != "notFound" && reply.error != "staleVersion") {
    throw std::runtime_error("acknowledgeAttention was refused: " + reply.error);
  }
  if (reply.ok()) ++tally_.acknowledgements;
}

}  // namespace velotide::bench
