#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/time.h"
#include "events/attention_item.h"
#include "protocol/session_records.h"

namespace velotide::client {

// A state that a person reads, and since when it lasts where that is known.
struct WatchedState {
  std::string text;
  std::optional<Date> since;

  bool operator==(const WatchedState&) const = default;
};

// One session as `watch` shows it. All texts may be written to a terminal.
struct WatchedSession {
  enum class Urgency {
    // An agent waits for the person.
    answer,
    // Something was not seen yet.
    unread,
    none,
  };

  Uuid id;
  Urgency urgency = Urgency::none;
  bool isRunning = false;
  WatchedState attention;
  WatchedState agent;
  WatchedState command;
  std::string directory;
  // What else there is to know.
  std::string detail;

  bool operator==(const WatchedSession&) const = default;
};

// What is known of all sessions, put in the order in which they need the person: those that require an
// answer, those with something unread, the rest, of which running ones come first.
class WatchedSessions {
 public:
  void takeSessions(std::vector<TerminalRuntimeSessionInfo> sessions);
  // As the service sorts them.
  void takeAttention(std::vector<TerminalAttentionItem> items);
  void noteExit(const Uuid& id, Date when);

  const std::vector<WatchedSession>& rows() const { return rows_; }
  const TerminalRuntimeSessionInfo* find(const Uuid& id) const;
  // What to acknowledge next in a session.
  const TerminalAttentionItem* firstUnread(const Uuid& id) const;

 private:
  struct AgentState {
    Uuid runID;
    TerminalAgentActivity activity;
    std::optional<TerminalAgentBlockReason> blockReason;
    Date since;
  };

  void noteAgents();
  void update();
  WatchedSession rowOf(const TerminalRuntimeSessionInfo& session) const;
  WatchedState commandOf(const TerminalRuntimeSessionInfo& session) const;
  void addAttention(WatchedSession& row) const;

  std::vector<TerminalRuntimeSessionInfo> sessions_;
  std::vector<TerminalAttentionItem> items_;
  // A report that says the same again makes the agent's snapshot younger, not its state.
  std::map<Uuid, AgentState> agents_;
  std::map<Uuid, Date> exits_;
  std::vector<WatchedSession> rows_;
};

std::string attentionWord(TerminalAttentionKind kind);

}  // namespace velotide::client
