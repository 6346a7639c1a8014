#include "client/watched_sessions.h"

#include <algorithm>

#include "base/record.h"
#include "client/cell_text.h"
#include "client/session_names.h"

namespace velotide::client {

namespace {

std::string commandWord(const TerminalRuntimeCommandInfo& command) {
  switch (command.state) {
    case TerminalCommandLifecycleState::running:
      return "running";
    case TerminalCommandLifecycleState::succeeded:
      return "done";
    case TerminalCommandLifecycleState::failed:
      return command.exitCode ? "failed " + std::to_string(*command.exitCode) : "failed";
    case TerminalCommandLifecycleState::interrupted:
      return "interrupted";
    case TerminalCommandLifecycleState::superseded:
      return "replaced";
    case TerminalCommandLifecycleState::completedUnknownStatus:
      return "ended";
  }
  return "";
}

std::string agentWord(const TerminalAgentSnapshot& agent) {
  std::string text(rawWord(agent.kind));
  text.append(" ").append(rawWord(agent.activity));
  if (agent.activity == TerminalAgentActivity::blocked && agent.blockReason)
    text.append(": ").append(rawWord(*agent.blockReason));
  else if (agent.activity == TerminalAgentActivity::idle && agent.lastResult)
    text.append(": ").append(rawWord(*agent.lastResult));
  return text;
}

std::string itemWord(const TerminalAttentionItem& item) {
  std::string text = attentionWord(item.kind);
  if (item.terminal && item.terminal->occurrences > 1)
    text += " x" + std::to_string(item.terminal->occurrences);
  if (item.terminal && item.terminal->exitCode && *item.terminal->exitCode != 0)
    text += " " + std::to_string(*item.terminal->exitCode);
  if (item.isStale) text += "?";
  if (item.readAt) text += ", seen";
  return text;
}

}  // namespace

std::string attentionWord(TerminalAttentionKind kind) {
  switch (kind) {
    case TerminalAttentionKind::approval:
      return "approval";
    case TerminalAttentionKind::question:
      return "question";
    case TerminalAttentionKind::blocked:
      return "blocked";
    case TerminalAttentionKind::completed:
      return "task done";
    case TerminalAttentionKind::failed:
      return "task failed";
    case TerminalAttentionKind::bell:
      return "bell";
    case TerminalAttentionKind::commandCompleted:
      return "cmd done";
    case TerminalAttentionKind::commandFailed:
      return "cmd failed";
    case TerminalAttentionKind::processExited:
      return "exited";
  }
  return "";
}

void WatchedSessions::takeSessions(std::vector<TerminalRuntimeSessionInfo> sessions) {
  sessions_ = std::move(sessions);
  std::erase_if(agents_, [this](const auto& entry) { return !find(entry.first); });
  std::erase_if(exits_, [this](const auto& entry) {
    const TerminalRuntimeSessionInfo* session = find(entry.first);
    return !session || session->running;
  });
  noteAgents();
  update();
}

void WatchedSessions::takeAttention(std::vector<TerminalAttentionItem> items) {
  items_ = std::move(items);
  for (const TerminalAttentionItem& item : items_) {
    if (item.kind == TerminalAttentionKind::processExited) exits_.try_emplace(item.tabID, item.createdAt);
  }
  update();
}

void WatchedSessions::noteExit(const Uuid& id, Date when) { exits_.insert_or_assign(id, when); }

const TerminalRuntimeSessionInfo* WatchedSessions::find(const Uuid& id) const {
  const auto found =
      std::find_if(sessions_.begin(), sessions_.end(),
                   [&](const TerminalRuntimeSessionInfo& session) { return session.id == id; });
  return found == sessions_.end() ? nullptr : &*found;
}

const TerminalAttentionItem* WatchedSessions::firstUnread(const Uuid& id) const {
  const auto found = std::find_if(items_.begin(), items_.end(), [&](const TerminalAttentionItem& item) {
    return item.tabID == id && !item.readAt;
  });
  return found == items_.end() ? nullptr : &*found;
}

void WatchedSessions::noteAgents() {
  for (const TerminalRuntimeSessionInfo& session : sessions_) {
    if (!session.agent) {
      agents_.erase(session.id);
      continue;
    }
    const TerminalAgentSnapshot& agent = *session.agent;
    const auto known = agents_.find(session.id);
    if (known == agents_.end() || known->second.runID != agent.runID ||
        known->second.activity != agent.activity || known->second.blockReason != agent.blockReason)
      agents_.insert_or_assign(session.id,
                               AgentState{agent.runID, agent.activity, agent.blockReason, agent.updatedAt});
  }
}

void WatchedSessions::update() {
  rows_.clear();
  for (const TerminalRuntimeSessionInfo& session : sessions_) rows_.push_back(rowOf(session));
  const auto rank = [this](const WatchedSession& row) {
    const auto first = std::find_if(items_.begin(), items_.end(),
                                    [&](const TerminalAttentionItem& item) { return item.tabID == row.id; });
    // Among those without attention the service's order stays, running ones first.
    return std::pair(first - items_.begin(), row.isRunning ? 0 : 1);
  };
  std::stable_sort(rows_.begin(), rows_.end(), [&](const WatchedSession& one, const WatchedSession& other) {
    return rank(one) < rank(other);
  });
}

WatchedSession WatchedSessions::rowOf(const TerminalRuntimeSessionInfo& session) const {
  WatchedSession row;
  row.id = session.id;
  row.isRunning = session.running;
  row.command = commandOf(session);
  row.directory = shownText(session.directory);
  if (session.agent) {
    row.agent.text = agentWord(*session.agent);
    if (const auto known = agents_.find(session.id); known != agents_.end())
      row.agent.since = known->second.since;
  }
  addAttention(row);
  if (!row.agent.text.empty()) row.detail += row.agent.text + ", ";
  if (session.controlOwner) row.detail += "controlled by " + shownText(*session.controlOwner) + ", ";
  row.detail += std::to_string(session.columns) + "x" + std::to_string(session.rows);
  if (session.running) row.detail += ", pid " + std::to_string(session.pid);
  return row;
}

WatchedState WatchedSessions::commandOf(const TerminalRuntimeSessionInfo& session) const {
  if (!session.running) {
    const std::int32_t status = session.exitStatus.value_or(-1);
    const auto exit = exits_.find(session.id);
    return {status < 0 ? "exited" : "exited " + std::to_string(status),
            exit == exits_.end() ? std::nullopt : std::optional(exit->second)};
  }
  // Without marks from a shell nothing is known but that the program runs.
  if (!session.commands || session.commands->empty()) return {"running", std::nullopt};
  const TerminalRuntimeCommandInfo& last = session.commands->back();
  return {commandWord(last), last.endedAt.value_or(last.startedAt)};
}

void WatchedSessions::addAttention(WatchedSession& row) const {
  std::size_t others = 0;
  for (const TerminalAttentionItem& item : items_) {
    if (item.tabID != row.id) continue;
    if (requiresAnswer(item.kind))
      row.urgency = WatchedSession::Urgency::answer;
    else if (!item.readAt && row.urgency == WatchedSession::Urgency::none)
      row.urgency = WatchedSession::Urgency::unread;
    if (row.attention.text.empty())
      row.attention = {itemWord(item), item.createdAt};
    else
      ++others;
  }
  if (others > 0) row.attention.text += " +" + std::to_string(others);
}

}  // namespace velotide::client
