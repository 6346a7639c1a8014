#include <algorithm>
#include <utility>
#include <vector>

#include "base/fatal.h"
#include "events/attention_store.h"

// Sessions whose notices are governed elsewhere.
namespace velotide {

namespace {

using Kind = TerminalSessionEventKind;
using Item = TerminalAttentionItem;
using Items = std::vector<Item>;

Items::const_iterator find(const Items& items, const Uuid& id) {
  return std::find_if(items.begin(), items.end(), [&](const Item& item) { return item.id == id; });
}

}  // namespace

void TerminalAttentionStore::markAgentAuthorityExternal(const Uuid& tabID) {
  externalAgentTabs_.insert(tabID);
}

void TerminalAttentionStore::markRuntimeAuthorityExternal(const Uuid& tabID) {
  externalAgentTabs_.insert(tabID);
  externalTerminalTabs_.insert(tabID);
}

bool TerminalAttentionStore::isExternal(const Item& item) const {
  return (item.isAgent() ? externalAgentTabs_ : externalTerminalTabs_).contains(item.tabID);
}

bool TerminalAttentionStore::forwardAcknowledgement(const Item& item) const {
  const auto found = externalAcknowledgement.find(item.tabID);
  if (found == externalAcknowledgement.end() || !found->second) return false;
  // A copy, because the authority may answer by changing what is registered here.
  const Acknowledge forward = found->second;
  return forward(Uuid(item.id), item.version);
}

void TerminalAttentionStore::adoptAgentItems(const Items& incoming, const Uuid& tabID,
                                             const std::optional<TerminalEventCursor>& cursor) {
  if (cursor) {
    const auto [held, isFirst] = externalCursors_.try_emplace(tabID, *cursor);
    if (held->second.appEpoch == cursor->appEpoch && held->second.sequence > cursor->sequence) return;
    held->second = *cursor;
  }
  externalAgentTabs_.insert(tabID);
  const auto isManaged = [&](const Item& item) { return item.tabID == tabID && isExternal(item); };
  Items current;
  std::copy_if(items_.begin(), items_.end(), std::back_inserter(current), isManaged);
  Items adopted;
  std::copy_if(incoming.begin(), incoming.end(), std::back_inserter(adopted),
               [&](const Item& item) { return isManaged(item) && !item.resolvedAt; });
  if (current == adopted) return;

  std::erase_if(items_, isManaged);
  items_.insert(items_.end(), adopted.begin(), adopted.end());
  touch(tabID);
  for (const Item& gone : current) {
    if (find(adopted, gone.id) != adopted.end()) continue;
    Item resolved = gone;
    resolved.resolvedAt = clock_.date();
    increment(resolved.version);
    emit(Kind::attentionResolved, std::move(resolved));
  }
  for (const Item& item : adopted) {
    const auto before = find(current, item.id);
    if (before == current.end()) {
      emit(Kind::attentionCreated, item);
    } else if (*before != item) {
      emit(Kind::attentionUpdated, item);
    }
  }
}

}  // namespace velotide
