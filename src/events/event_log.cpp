#include "events/event_log.h"

#include <algorithm>
#include <utility>

#include "base/fatal.h"

namespace velotide {

TerminalSessionEventStore::TerminalSessionEventStore(const Uuid& appEpoch, std::int64_t capacity)
    : appEpoch_(appEpoch), capacity_(static_cast<std::size_t>(std::max<std::int64_t>(capacity, 1))) {}

void TerminalSessionEventStore::publish(const Uuid& tabID, TerminalSessionEventKind kind, Date now,
                                        TerminalEventDetails details) noexcept {
  increment(sequence_);
  TerminalSessionEvent event{cursor(),
                             tabID,
                             kind,
                             now,
                             details.commandID,
                             details.commandState,
                             details.revision,
                             std::move(details.agent),
                             details.location,
                             std::move(details.attention)};
  if (ring_.size() < capacity_) {
    ring_.push_back(event);
  } else {
    ring_[slotOf(sequence_)] = event;
  }
  if (isDelivering_) {
    pendingDelivery_.push_back(std::move(event));
    return;
  }
  isDelivering_ = true;
  deliver(event);
  while (!pendingDelivery_.empty()) {
    event = std::move(pendingDelivery_.front());
    pendingDelivery_.pop_front();
    deliver(event);
  }
  isDelivering_ = false;
}

void TerminalSessionEventStore::deliver(const TerminalSessionEvent& event) {
  const std::shared_ptr<const Observers> snapshot = observers_;
  for (const auto& [registration, observer] : *snapshot) observer(event);
}

Uuid TerminalSessionEventStore::observe(Observer observer) {
  const Uuid registration = Uuid::random();
  auto changed = std::make_shared<Observers>(*observers_);
  changed->emplace_back(registration, std::move(observer));
  observers_ = std::move(changed);
  return registration;
}

void TerminalSessionEventStore::removeObserver(const Uuid& registration) {
  auto changed = std::make_shared<Observers>(*observers_);
  std::erase_if(*changed, [&](const auto& entry) { return entry.first == registration; });
  observers_ = std::move(changed);
}

std::optional<TerminalEventReadError> TerminalSessionEventStore::readError(
    const TerminalEventCursor& after) const {
  if (after.appEpoch != appEpoch_) return TerminalEventReadError::appRestarted;
  if (after.sequence > sequence_) return TerminalEventReadError::futureCursor;
  const std::uint64_t held = std::min<std::uint64_t>(sequence_, capacity_);
  if (after.sequence < sequence_ - held) return TerminalEventReadError::cursorExpired;
  return std::nullopt;
}

TerminalEventBatch TerminalSessionEventStore::read(const TerminalEventCursor& after,
                                                   std::int64_t limit) const {
  if (const std::optional<TerminalEventReadError> error = readError(after)) throw Failure(*error);

  const std::uint64_t waiting = sequence_ - after.sequence;
  const auto most =
      static_cast<std::uint64_t>(std::clamp<std::int64_t>(limit, 1, static_cast<std::int64_t>(capacity_)));
  TerminalEventBatch batch;
  batch.nextCursor = after;
  batch.hasMore = waiting > most;
  batch.events.reserve(std::min(waiting, most));
  for (std::uint64_t count = std::min(waiting, most); count > 0; --count) {
    batch.events.push_back(eventAt(++batch.nextCursor.sequence));
  }
  return batch;
}

}  // namespace velotide
