#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "base/failure.h"
#include "base/time.h"
#include "base/uuid.h"
#include "events/session_event.h"

namespace velotide {

// What an event says beyond session, kind and time.
struct TerminalEventDetails {
  std::optional<Uuid> commandID{};
  std::optional<TerminalCommandLifecycleState> commandState{};
  std::optional<std::int64_t> revision{};
  std::optional<TerminalAgentSnapshot> agent{};
  std::optional<TerminalSessionLocation> location{};
  std::optional<TerminalAttentionItem> attention{};
};

// The newest happenings of all sessions, numbered without holes and read by cursor.
// Bounded: past its capacity it drops the oldest event, and a reader that still wanted it is told "cursor
// expired" instead of being led over the gap. Observers get every event in order, one event at a time, also
// when they publish from inside their callback.
class TerminalSessionEventStore {
 public:
  static constexpr std::int64_t defaultCapacity = 1024;

  using Observer = std::function<void(const TerminalSessionEvent&)>;

  // A capacity below 1 counts as 1. `appEpoch` identifies this run of the service.
  explicit TerminalSessionEventStore(const Uuid& appEpoch, std::int64_t capacity = defaultCapacity);
  TerminalSessionEventStore(const TerminalSessionEventStore&) = delete;
  TerminalSessionEventStore& operator=(const TerminalSessionEventStore&) = delete;

  const Uuid& appEpoch() const { return appEpoch_; }
  std::uint64_t sequence() const { return sequence_; }
  // The position behind the newest event.
  TerminalEventCursor cursor() const { return {appEpoch_, sequence_}; }

  // Nothing can fail it: an observer that throws, for want of memory, ends the process instead of leaving
  // others untold.
  void publish(const Uuid& tabID, TerminalSessionEventKind kind, Date now,
               TerminalEventDetails details = {}) noexcept;

  // The registration that removeObserver takes; removing an unknown one does nothing. An observer removed
  // during a delivery may still get the event that is being delivered.
  Uuid observe(Observer observer);
  void removeObserver(const Uuid& registration);
  std::size_t observerCount() const { return observers_->size(); }

  // What a read after this cursor would fail with; nothing when it would not.
  std::optional<TerminalEventReadError> readError(const TerminalEventCursor& after) const;
  // A held event, valid until the next publish: one behind a cursor that can be read, up to `sequence()`.
  const TerminalSessionEvent& eventAt(std::uint64_t sequence) const { return ring_[slotOf(sequence)]; }
  std::size_t capacity() const { return capacity_; }

  // Events after the cursor, oldest first: at most `limit`, at most the capacity, at least one if any waits.
  // Throws Failure<TerminalEventReadError>.
  TerminalEventBatch read(const TerminalEventCursor& after, std::int64_t limit = 100) const;

 private:
  using Observers = std::vector<std::pair<Uuid, Observer>>;

  void deliver(const TerminalSessionEvent& event);
  std::size_t slotOf(std::uint64_t sequence) const { return (sequence - 1) % capacity_; }

  const Uuid appEpoch_;
  const std::size_t capacity_;
  std::uint64_t sequence_ = 0;
  std::vector<TerminalSessionEvent> ring_;
  // Replaced, never changed, so that a delivery keeps the list it began with.
  std::shared_ptr<const Observers> observers_ = std::make_shared<Observers>();
  // Published by observers while another event is being delivered.
  std::deque<TerminalSessionEvent> pendingDelivery_;
  bool isDelivering_ = false;
};

}  // namespace velotide
