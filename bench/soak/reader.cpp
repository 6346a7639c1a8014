#include <algorithm>
#include <stdexcept>

#include "end_to_end/json_text.h"
#include "soak/visitors.h"

namespace velotide::bench {
namespace {

// Longer than a connection without a subscription may be silent.
constexpr std::chrono::seconds silence{6};

bool isOfEnd(std::string_view error) { return error == "unavailable" || error == "generation_changed"; }

}  // namespace

Reader::Reader(const ServiceProcess& service, const Fleet& fleet, Tally& tally, std::uint64_t seed)
    : fleet_(fleet), tally_(tally), random_(seed), client_(service, tally) {}

void Reader::act() {
  if (Clock::now() < silentUntil_) return pause(std::chrono::milliseconds(50));
  if (random_.oneIn(300)) silentUntil_ = Clock::now() + silence;
  const std::size_t place = random_.below(Fleet::size);
  const auto member = fleet_.at(place);
  if (!member || member->isLeaving) return;
  if (random_.oneIn(10)) return readInVain(*member);
  readOn(place, *member, random_.oneIn(3) ? 0 : random_.below(1 << random_.between(1, 22)));
  pause(std::chrono::milliseconds(random_.below(20)));
}

// A few batches that follow each other.
void Reader::readOn(std::size_t place, const Member& member, std::uint64_t from) {
  StreamCheck check(member.plan.stream, member.session.generation, from);
  for (std::uint64_t batches = random_.between(1, 4); batches > 0; --batches) {
    const Reply reply =
        client_.ask("read", member.session.address() + member.session.after(check.position()));
    if (isOfEnd(reply.error)) return fleet_.requireLeaving(place, member, reply.error);
    // As good an answer as any to an offset that was drawn by lot, but only to that one.
    if (reply.error == "future_cursor" && check.position() == from) return;
    if (!reply.ok()) throw std::runtime_error("read was refused: " + reply.error);
    check.accept(carriedOutputIn(reply.record, scratch_).value(), tally_);
    ++tally_.reads;
  }
}

void Reader::readInVain(const Member& member) {
  const std::string id = R"(,"sessionID":)" + jsonText(member.session.id);
  client_.requireRefusal("unavailable", "read", R"(,"sessionID":)" + jsonText(freshUuid()));
  if (client_.ask("read", id).ok()) throw std::runtime_error("read without a generation");
  const Reply beyond =
      client_.ask("read", member.session.address() + member.session.after(std::uint64_t{1} << 60));
  if (beyond.error != "future_cursor" && !isOfEnd(beyond.error)) {
    throw std::runtime_error("a read from far beyond the end: " + beyond.error);
  }
}

}  // namespace velotide::bench
