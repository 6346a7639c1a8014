#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "agents/agent_snapshot.h"
#include "base/time.h"
#include "base/uuid.h"
#include "events/attention_deduplication.h"
#include "events/attention_item.h"
#include "events/event_log.h"

namespace velotide {

// Decides when a session needs the person, and keeps these notices. It listens to the event log for agents
// and for the end of sessions, is handed terminal notices by the sessions, and publishes every creation,
// change and resolution of an item back into the log. Bounded: at 256 items the oldest that is resolved or
// needs no answer makes room; only unresolved items that require an answer exceed the bound, and while they
// fill it other notices are refused. A session may be governed by an external authority: its items are then
// adopted, not made here.
class TerminalAttentionStore {
 public:
  static constexpr std::size_t capacity = 256;

  // Forwards an acknowledgement (item, version) to an external authority; true when it was accepted.
  using Acknowledge = std::function<bool(const Uuid& id, std::int64_t version)>;
  using UnreadChanged = std::function<void(const Uuid& tabID, bool hasUnread)>;

  // Both must outlive the store. The clock dates what the store does on its own account.
  TerminalAttentionStore(TerminalSessionEventStore& events, const Clock& clock);
  ~TerminalAttentionStore();
  TerminalAttentionStore(const TerminalAttentionStore&) = delete;
  TerminalAttentionStore& operator=(const TerminalAttentionStore&) = delete;

  // Everything held, oldest first, resolved items included until they make room.
  const std::vector<TerminalAttentionItem>& items() const { return items_; }
  // The unresolved items: what requires an answer first, then what is unread, then by age.
  std::vector<TerminalAttentionItem> activeItems() const;
  std::vector<TerminalAttentionItem> activeItems(const Uuid& tabID) const;
  // The same without copies, valid until the next call that changes the store. Sorted again only after a
  // change.
  std::span<const TerminalAttentionItem* const> activeView() const;
  bool hasUnread(const Uuid& tabID) const;

  // Grows with every change of the items. The number of one session changes with its active items: the number
  // that was seen before means that they are still the same.
  std::uint64_t revision() const { return revision_; }
  std::uint64_t revision(const Uuid& tabID) const;

  // The item that a terminal notice created or updated; nothing when it was seen before or found no room.
  std::optional<TerminalAttentionItem> record(const TerminalAttentionTerminalContext& context,
                                              const Uuid& tabID, Date now);

  // Acknowledges one item, which dismisses it unless it requires an answer. Throws
  // Failure<TerminalAttentionMutationError>.
  void markRead(const Uuid& id, std::int64_t version, Date now);
  // Acknowledges what can be acknowledged of a session.
  void markViewed(const Uuid& tabID, Date now);
  // Resolve everything, or everything of agents, and forget what was seen of agents.
  void clear(Date now);
  void clearAgents(Date now);

  // External authority over the agents of a session, or over all its notices; ends when the session closes.
  void markAgentAuthorityExternal(const Uuid& tabID);
  void markRuntimeAuthorityExternal(const Uuid& tabID);
  // Replaces what the authority manages by its list. A list older than one adopted before is ignored.
  void adoptAgentItems(const std::vector<TerminalAttentionItem>& incoming, const Uuid& tabID,
                       const std::optional<TerminalEventCursor>& cursor);

  // For hosts, by session; called on the way of a change, when the items already show it.
  std::unordered_map<Uuid, Acknowledge> externalAcknowledgement;
  UnreadChanged onUnreadChanged;

 private:
  using MutationError = TerminalAttentionMutationError;

  // What the events of the log mean for the items.
  void consume(const TerminalSessionEvent& event);
  void consumeClosed(const Uuid& tabID, Date now);
  void consumeAgent(const Uuid& tabID, const TerminalAgentSnapshot& state, Date now);
  void updateExisting(const Uuid& tabID, const TerminalAgentSnapshot& state, Date now);
  void createIfNeeded(const Uuid& tabID, const TerminalAgentSnapshot& state, TerminalAttentionKind kind,
                      Date now);

  bool hasRoom() const { return items_.size() < capacity; }
  void makeRoom();
  // The announced copy of a new item, which gets its identifier and sequence here.
  TerminalAttentionItem create(TerminalAttentionItem item);
  void resolve(std::size_t index, Date now);
  // Resolves what is unresolved, of one session or of all.
  enum class Concerned { everything, agents };
  void resolveAll(Concerned concerned, const std::optional<Uuid>& tabID, Date now);
  std::optional<MutationError> acknowledge(const Uuid& id, std::int64_t version, Date now);
  bool isExternal(const TerminalAttentionItem& item) const;
  bool forwardAcknowledgement(const TerminalAttentionItem& item) const;
  void touch(const Uuid& tabID) { tabRevisions_[tabID] = ++revision_; }
  // Items may have come, gone or moved when it returns.
  void emit(TerminalSessionEventKind kind, TerminalAttentionItem item);
  void tellUnread(const Uuid& tabID) const;

  TerminalSessionEventStore& events_;
  const Clock& clock_;
  // Tells an event that is still being delivered whether the store is.
  const std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
  const Uuid observation_;

  std::vector<TerminalAttentionItem> items_;
  // The last agent snapshot seen of each session.
  std::unordered_map<Uuid, TerminalAgentSnapshot> previous_;
  TerminalAttentionDeduplication terminalDeduplication_;
  std::unordered_set<Uuid> externalAgentTabs_;
  std::unordered_set<Uuid> externalTerminalTabs_;
  std::unordered_map<Uuid, TerminalEventCursor> externalCursors_;

  std::uint64_t revision_ = 1;
  // Of each session that had items; forgotten when it closes.
  std::unordered_map<Uuid, std::uint64_t> tabRevisions_;
  mutable std::vector<const TerminalAttentionItem*> active_;
  mutable std::uint64_t activeRevision_ = 0;
};

}  // namespace velotide
