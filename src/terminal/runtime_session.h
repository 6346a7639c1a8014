#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "agents/agent_monitor.h"
#include "agents/native_agent_context.h"
#include "base/byte_queue.h"
#include "base/file_descriptor.h"
#include "base/time.h"
#include "base/uuid.h"
#include "commands/bell_parser.h"
#include "commands/command_ledger.h"
#include "commands/reminder_policy.h"
#include "events/attention_store.h"
#include "events/event_log.h"
#include "protocol/runtime_request.h"
#include "protocol/session_records.h"
#include "terminal/control_lease.h"
#include "terminal/output_journal.h"

namespace velotide {

// How many bytes of a terminal's output to take at most, and how many with each read.
struct OutputReading {
  std::size_t bytes;
  std::size_t atOnce;
};

// One hosted terminal: a child on a pseudo-terminal, the journal of what it printed, and the rules by which
// several parties may type into it. The loop drives it: `expire` every turn, `noticeExit` when it
// looks at the children, `readOutput` when the terminal is readable, `flushInput` when it takes bytes and
// input is pending. It owns its terminal and child, follows the commands and the agent in it, publishes what
// happens to the event log and leaves notices in the attention store. Bounded: 1 MiB of output, 128 KiB of
// pending input, what the trackers keep.
class RuntimeSession {
 public:
  // What the sessions of a service share; must outlive them.
  struct Surroundings {
    // Of the mailbox that programs inside a session find through their context descriptor.
    std::string nativeRoot;
    TerminalSessionEventStore& events;
    TerminalAttentionStore& attention;
    const Clock& clock;
  };

  // Starts the child. Throws Failure<RuntimeFailure>, or SystemFailure when the context descriptor cannot be
  // written; nothing is left running or on disk then.
  RuntimeSession(const Uuid& id, const TerminalRuntimeLaunch& launch, const Surroundings& surroundings);
  RuntimeSession(const RuntimeSession&) = delete;
  RuntimeSession& operator=(const RuntimeSession&) = delete;

  const Uuid& id() const { return id_; }
  std::int32_t pid() const { return pid_; }
  // The terminal's master side, negative once closed.
  int fd() const { return terminal_.get(); }
  bool running() const { return !exitStatus_.has_value(); }
  const TerminalRuntimeOutputJournal& journal() const { return journal_; }
  const ControlLease& control() const { return control_; }
  const TerminalAgentMonitor& agentMonitor() const { return agentMonitor_; }
  const TerminalNativeAgentContext& nativeAgentContext() const { return nativeAgentContext_; }
  const TerminalRuntimeCommandLedger& commandLedger() const { return commandLedger_; }
  std::int64_t outputRevision() const { return outputRevision_; }
  bool hasPendingInput() const { return !pendingInput_.empty(); }
  TerminalRuntimeSessionInfo info() const;

  // Group in the terminal's foreground; nothing when the terminal is closed or has none.
  std::optional<std::int32_t> foregroundProcessGroup() const;
  // Whether the terminal echoes; nothing when it cannot be asked.
  std::optional<bool> echoes() const;

  // Lets time take effect: leases and agent states that lapse.
  void expire();
  // Lets the child's end take effect. Never throws: when the last output cannot be read the system log says
  // so.
  void noticeExit();
  void refresh() {
    expire();
    noticeExit();
  }
  // Hangs up and lets go of the terminal. The child may still be running afterwards; whoever drops the
  // session reaps it.
  void close();
  // Moves what the terminal holds into the journal. Throws what the journal throws.
  void readOutput(OutputReading reading);
  // More than a terminal holds.
  static constexpr std::size_t lastOutput = 1048576;
  // The same where nobody could take what it throws: that goes to the system log.
  void drainOutput(std::size_t bytes);

  // Applies one change to the agent monitor and announces what came of it. Throws what the change throws.
  template <typename Change>
  void updateAgent(Change change) {
    const TerminalAgentMonitor::Revision before = agentMonitor_.revision();
    change(agentMonitor_);
    announceAgent(before);
  }

  // Checks that the request speaks of this output generation and, if asked, of this control epoch.
  // Throws generationChanged or controlChanged.
  enum class Need { generation, control };
  void validate(const TerminalRuntimeRequest& request, Need need) const;

  // Each throws the word of the first rule that the request breaks, with nothing changed.
  // `input` answers whether everything was written at once to a terminal that echoes; its writeFailed comes
  // after the input was accepted.
  bool input(const TerminalRuntimeRequest& request);
  void updateControl(const TerminalRuntimeRequest& request);
  void resize(const TerminalRuntimeRequest& request);
  void configureReminders(const TerminalReminderPolicy& policy);

  // Writes pending input as far as the terminal takes it. Throws writeFailed.
  void flushInput();

 private:
  enum class ReadOutcome { output, nothingNow, end };

  ReadOutcome readChunk(std::size_t room, std::size_t atOnce);
  void acceptOutput(ByteView chunk);
  void acceptBells(ByteView chunk, Date now);
  void finishCommand();
  void publishCommand(const TerminalRuntimeCommandInfo& command, Date now);
  void recordCommandReminder(const TerminalRuntimeCommandInfo& command, Date now);
  void recordProcessExit(std::optional<std::int32_t> status);
  bool hasSemanticItem() const;
  void announceAgent(const TerminalAgentMonitor::Revision& before);
  void lookAtEndedTerminal();
  void childExited(std::int32_t status);
  void childVanished();
  void noteExit(std::int32_t status);
  void endAgent(TerminalAgentMonitor::Closing closing);
  void checkInput(const TerminalRuntimeRequest& request) const;
  void checkExpectations(const TerminalRuntimeRequest& request) const;
  void releaseControl();
  void changed();

  const Uuid id_;
  TerminalSessionEventStore& events_;
  TerminalAttentionStore& attention_;
  const Clock& clock_;
  const std::string directory_;
  TerminalReminderPolicy reminderPolicy_;
  TerminalRuntimeOutputJournal journal_;
  ControlLease control_;
  std::int64_t columns_;
  std::int64_t rows_;
  std::int32_t pid_ = 0;
  FileDescriptor terminal_;
  // The master side while nobody holds the other one, until the child has ended too.
  FileDescriptor endedTerminal_;
  std::optional<std::int32_t> exitStatus_;
  // Of many sessions, few are typed into; what was pasted once is not room to keep.
  ByteQueue pendingInput_{4096};
  TerminalNativeAgentContext nativeAgentContext_;
  TerminalAgentMonitor agentMonitor_;
  TerminalRuntimeCommandLedger commandLedger_;
  TerminalBellParser bellParser_;
  std::uint64_t revision_ = 1;
  std::int64_t outputRevision_ = 0;
};

}  // namespace velotide
