#pragma once

#include <optional>
#include <string>

#include "agents/agent_report.h"
#include "base/file_descriptor.h"
#include "base/time.h"
#include "client/agent_context.h"
#include "client/agent_event.h"

namespace velotide::client {

// What the helpers that an agent calls remember of it from one call to the next.
struct AgentRecord {
  TerminalAgentKind kind = TerminalAgentKind::claude;
  // Absent once the agent exited.
  std::optional<TerminalAgentGrant> grant;
  // The last report was refused because the grant no longer holds.
  bool isLost = false;
  // Of the session's output, which requests to the service must quote.
  std::optional<Uuid> generation;
  // Of the last report.
  std::uint64_t sequence = 0;
  Date reportedAt;
  // The turn was reported as ended, and no other has begun.
  bool isAtRest = false;
  // The agent's own names, where its events told them.
  std::optional<std::string> agentSession;
  std::optional<std::string> turn;

  bool operator==(const AgentRecord&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("kind", self.kind);
    visit("grant", self.grant);
    visit("isLost", self.isLost);
    visit("generation", self.generation);
    visit("sequence", self.sequence);
    visit("reportedAt", self.reportedAt);
    visit("isAtRest", self.isAtRest);
    visit("agentSession", self.agentSession);
    visit("turn", self.turn);
  }
};

// How an event is to be answered, given what is remembered: with a new binding first or not, with a report or
// not. Events that come late (hooks run at the same time) or from an agent inside the agent change nothing.
struct AgentAnswer {
  bool binds = false;
  bool reports = false;

  bool operator==(const AgentAnswer&) const = default;
};
AgentAnswer answerTo(const AgentEvent& event, TerminalAgentKind kind,
                     const std::optional<AgentRecord>& record, Date now);

// The record of a session, locked against all other helpers for as long as this lives. Kept in a private file
// named after the session's descriptor, beside those of other sessions; gone with the session at the latest
// when another one begins its own.
class AgentRecordFile {
 public:
  // Waits for the lock at most `limit`. Throws Trouble.
  AgentRecordFile(const AgentContext& context, Seconds limit);

  // Nothing before the first save. Throws Trouble when the file is not to be trusted.
  std::optional<AgentRecord> load() const;
  void save(const AgentRecord& record) const;

 private:
  std::string path(const char* suffix) const;
  void sweep(const AgentContext& context) const;

  std::string directory_;
  std::string name_;
  FileDescriptor lock_;
};

}  // namespace velotide::client
