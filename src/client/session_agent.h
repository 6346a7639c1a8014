#pragma once

#include <optional>
#include <string>

#include "bridge/native_messages.h"
#include "client/agent_context.h"
#include "client/agent_record.h"
#include "client/service.h"

namespace velotide::client {

// What an agent says of itself; the rest of a report is the binding's.
struct AgentState {
  TerminalAgentActivity activity = TerminalAgentActivity::unknown;
  std::optional<TerminalAgentBlockReason> blockReason;
  std::optional<TerminalAgentResult> result;
  std::optional<TerminalAgentReportedContext> context;
};

// The agent of the session that this program runs in: binds it and reports for it, one helper at a time.
// Agents of kind "tesseral" have the mailbox as their road, the others the socket. Whoever calls this stands
// in an agent's way, so every wait is short.
class SessionAgent {
 public:
  explicit SessionAgent(const AgentContext& context);

  const std::optional<AgentRecord>& record() const { return record_; }
  // The agent's own names for its session and turn, kept with the next report.
  void remember(const AgentEvent& event);

  // Whether the service follows the agent that is remembered as bound.
  bool isFollowed();
  // Whether whoever was bound has exited while one of the shell's commands runs, as when an agent is
  // suspended and goes on: the shell takes the suspension for the end of a command and the rest for another
  // one.
  bool mayReturn();

  // A new binding, which ends any earlier one, and a new record. Throws Trouble when it is refused.
  void bind(TerminalAgentKind kind, const std::optional<std::string>& agentSession = {});

  // Reports for the bound agent under the next sequence. The sequence is kept before the report is made: one
  // that is lost on the way leaves a gap, never a repetition. False when the binding no longer holds, which
  // is then remembered; any other refusal is thrown as Trouble.
  bool report(const AgentState& state);

 private:
  static constexpr Seconds patience = 2;

  void bindThroughSocket(TerminalAgentKind kind);
  void bindThroughMailbox(TerminalAgentKind kind);
  std::optional<std::string> reportThroughSocket(const TerminalAgentReport& report);
  std::optional<std::string> reportThroughMailbox(const TerminalAgentReport& report);
  RuntimeNativeResponse askMailbox(RuntimeNativeAction action, RuntimeNativeRequest request) const;
  Service& service();
  // Nothing when it is gone.
  std::optional<TerminalRuntimeSessionInfo> session() { return service().session(context_.tabID); }
  void save() const { file_.save(record_.value()); }

  const AgentContext& context_;
  const Notices notices_{true};
  AgentRecordFile file_;
  std::optional<AgentRecord> record_;
  std::optional<Service> service_;
};

}  // namespace velotide::client
