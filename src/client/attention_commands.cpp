#include <algorithm>

#include "client/agent_text.h"
#include "client/cell_text.h"
#include "client/commands.h"
#include "client/event_stream.h"
#include "client/printing.h"
#include "client/session_names.h"
#include "client/trouble.h"
#include "events/attention_store.h"

namespace velotide::client {

namespace {

using Items = std::vector<TerminalAttentionItem>;

constexpr int acknowledgeAttempts = 8;

// One line of `agents --json`.
struct AgentLine {
  Uuid session;
  TerminalAgentSnapshot agent;

  static void fields(auto& self, auto& visit) {
    visit("session", self.session);
    visit("agent", self.agent);
  }
};

struct ActiveItems {
  Items items;
  // Where the event log stood.
  TerminalEventCursor head;
};

ActiveItems activeItems(Service& service) {
  TerminalRuntimeResponse response =
      service.call(TerminalRuntimeRequest::make(TerminalRuntimeAction::listAttention));
  return {response.attention.value_or(Items()), response.eventHead.value()};
}

std::string detailOf(const TerminalAttentionItem& item) {
  std::string text;
  const auto add = [&text](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
  if (item.terminal && item.terminal->exitCode) add("exit " + std::to_string(*item.terminal->exitCode));
  if (item.terminal && item.terminal->occurrences > 1)
    add(std::to_string(item.terminal->occurrences) + " times");
  if (item.context && item.context->taskID) add("task " + shownText(*item.context->taskID));
  if (item.context && item.context->gateID) add("gate " + shownText(*item.context->gateID));
  if (item.isStale) add("stale");
  if (item.readAt && !item.resolvedAt) add("seen");
  return text;
}

void printItems(const Items& items, bool asJson) {
  std::vector<std::vector<std::string>> rows;
  for (const TerminalAttentionItem& item : items) {
    if (asJson) printJson(item);
    rows.push_back({shortName(item.id), shortName(item.tabID), std::string(rawWord(item.kind)),
                    localTime(item.createdAt), detailOf(item)});
  }
  if (!asJson) printTable({"ITEM", "SESSION", "KIND", "SINCE", "DETAIL"}, rows);
}

// What was told of the items, and how they change. Bounded: beyond what the service holds they are looked at
// anew.
class ItemChanges {
 public:
  ItemChanges(Service& service, Items told, bool asJson)
      : service_(service), asJson_(asJson), told_(std::move(told)) {}

  bool isFull() const { return told_.size() > TerminalAttentionStore::capacity; }
  // Tells the change that an event carries, if it does.
  void take(const TerminalSessionEvent& event);
  // Tells how the active items differ from what was told, for changes whose events were dropped. Answers
  // where the event log stood then.
  TerminalEventCursor compare();

 private:
  void tell(const TerminalAttentionItem& item, TerminalSessionEventKind kind, Date when) const;

  Service& service_;
  const bool asJson_;
  Items told_;
};

const TerminalAttentionItem* findItem(const Items& items, const Uuid& id) {
  const auto found = std::ranges::find(items, id, &TerminalAttentionItem::id);
  return found == items.end() ? nullptr : &*found;
}

void ItemChanges::tell(const TerminalAttentionItem& item, TerminalSessionEventKind kind, Date when) const {
  if (asJson_) return printJson(item);
  const std::string_view change = kind == TerminalSessionEventKind::attentionCreated   ? "created"
                                  : kind == TerminalSessionEventKind::attentionUpdated ? "updated"
                                                                                       : "resolved";
  std::string line = localTime(when) + "  " + shortName(item.id) + "  " + shortName(item.tabID) + "  ";
  line += std::string(rawWord(item.kind)) + " " + std::string(change);
  if (const std::string detail = detailOf(item); !detail.empty()) line += " (" + detail + ")";
  print(line + "\n");
}

void ItemChanges::take(const TerminalSessionEvent& event) {
  if (!event.attention) return;
  tell(*event.attention, event.kind, event.occurredAt);
  std::erase_if(told_, [&](const TerminalAttentionItem& item) { return item.id == event.attention->id; });
  if (!event.attention->resolvedAt) told_.push_back(*event.attention);
}

TerminalEventCursor ItemChanges::compare() {
  ActiveItems active = activeItems(service_);
  const Date now = SystemClock().date();
  for (TerminalAttentionItem& item : told_) {
    if (findItem(active.items, item.id)) continue;
    item.resolvedAt = now;
    tell(item, TerminalSessionEventKind::attentionResolved, now);
  }
  for (const TerminalAttentionItem& item : active.items) {
    const TerminalAttentionItem* told = findItem(told_, item.id);
    if (!told)
      tell(item, TerminalSessionEventKind::attentionCreated, item.createdAt);
    else if (told->version != item.version)
      tell(item, TerminalSessionEventKind::attentionUpdated, now);
  }
  told_ = std::move(active.items);
  return active.head;
}

void followChanges(Service& service, ActiveItems told, bool asJson) {
  SignalPipe signals({SIGINT, SIGTERM, SIGHUP});
  const PrintingUntilSignal printing(signals);
  // Without a beginning that is held to: what is dropped before the first read is looked for as any later.
  EventStream stream(service, std::nullopt);
  stream.goOnBehind(told.head);
  ItemChanges changes(service, std::move(told.items), asJson);
  do {
    const std::vector<TerminalSessionEvent> events = stream.read();
    if (stream.takeMissed() > 0 || changes.isFull()) {
      stream.goOnBehind(changes.compare());
    } else {
      for (const TerminalSessionEvent& event : events) changes.take(event);
    }
  } while (stream.pause(signals));
}

const TerminalAttentionItem& resolveItem(std::string_view name, const Items& items) {
  const std::vector<const TerminalAttentionItem*> found = namedBy(name, items);
  if (found.size() > 1) throw Trouble(std::string(name) + " fits several items. Give more of the name.");
  if (found.empty())
    throw Trouble("No active item is named " + (name.empty() ? "\"\"" : std::string(name)) +
                  ". `velotide attention` shows those there are.");
  return *found.front();
}

Items chosenItems(Service& service, const AcknowledgeOptions& options) {
  const Items items = activeItems(service).items;
  std::optional<Uuid> session;
  if (options.session) session = findSession(service, *options.session).id;
  std::vector<Uuid> named;
  for (const std::string& name : options.items) named.push_back(resolveItem(name, items).id);
  Items chosen;
  for (const TerminalAttentionItem& item : items) {
    const bool isNamed = std::ranges::find(named, item.id) != named.end();
    if (options.all || item.tabID == session || isNamed) chosen.push_back(item);
  }
  return chosen;
}

std::string acknowledgeVersion(Service& service, const TerminalAttentionItem& item) {
  TerminalRuntimeRequest request = TerminalRuntimeRequest::make(TerminalRuntimeAction::acknowledgeAttention);
  request.attentionID = item.id;
  request.attentionVersion = item.version;
  return service.ask(request).error.value_or("");
}

// The word of a refusal, or nothing. An item that changed between the look at it and the acknowledgement is
// looked at again, but not for ever: a session may ring without end.
std::string acknowledgeItem(Service& service, TerminalAttentionItem item) {
  const std::int64_t seen = item.version;
  std::string error = acknowledgeVersion(service, item);
  for (int attempt = 1; error == "staleVersion" && attempt < acknowledgeAttempts; ++attempt) {
    const Items items = activeItems(service).items;
    const TerminalAttentionItem* current = findItem(items, item.id);
    if (current) item = *current;
    error = current ? acknowledgeVersion(service, item) : "notFound";
  }
  if (error.empty() && item.version != seen)
    service.notices().note("item " + shortName(item.id) + " changed meanwhile: acknowledged version " +
                           std::to_string(item.version));
  if (error != "notFound") return error;
  service.notices().note("item " + shortName(item.id) + " is already resolved");
  return "";
}

}  // namespace

int listAgents(Service& service, bool asJson) {
  std::vector<std::vector<std::string>> rows;
  bool isAny = false;
  for (const TerminalRuntimeSessionInfo& session : service.sessions()) {
    if (!session.agent) continue;
    isAny = true;
    const TerminalAgentSnapshot& agent = *session.agent;
    if (asJson) printJson(AgentLine{session.id, agent});
    rows.push_back({shortName(session.id), std::string(rawWord(agent.kind)), describeState(agent),
                    localTime(agent.updatedAt), std::string(rawWord(agent.reason)),
                    std::string(rawWord(agent.confidence))});
  }
  if (!asJson)
    printTable({"SESSION", "AGENT", "STATE", "SINCE", "WHY", "CONFIDENCE"}, rows);
  else if (!isAny)
    print("[]\n");
  return ExitStatus::success;
}

int listAttention(Service& service, const AttentionOptions& options) {
  const ActiveItems active = activeItems(service);
  if (!options.follows && options.asJson && active.items.empty()) print("[]\n");
  printItems(active.items, options.asJson);
  if (options.follows) followChanges(service, active, options.asJson);
  return ExitStatus::success;
}

int acknowledge(Service& service, const AcknowledgeOptions& options) {
  if (options.items.empty() && !options.session && !options.all)
    throw Trouble("Name the items to acknowledge, or give --session or --all.", ExitStatus::usage);
  std::string refusal;
  for (const TerminalAttentionItem& item : chosenItems(service, options)) {
    const std::string word = acknowledgeItem(service, item);
    if (refusal.empty()) refusal = word;
  }
  if (!refusal.empty()) throw Trouble(explain(refusal));
  return ExitStatus::success;
}

}  // namespace velotide::client
