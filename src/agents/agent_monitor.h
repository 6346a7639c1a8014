#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "agents/agent_report.h"
#include "agents/agent_snapshot.h"
#include "base/time.h"
#include "base/uuid.h"

namespace velotide {

// Follows the AI agent of one session. Evidence comes from an integration that holds a grant and reports,
// from an observer that saw an agent program run, from time (what is not renewed decays to "unknown"), and
// from the end of things. A plain value: the session says what happens and when, and publishes what changed.
class TerminalAgentMonitor {
 public:
  // How long a bind or an accepted report is trusted, and how long one observation.
  static constexpr Seconds reportLifetime = 120;
  static constexpr Seconds observedLifetime = 15;

  // Whether an exit of the agent is also the end of its session.
  enum class Closing { no, yes };

  // Counts the changes of the snapshot, so that a caller learns what a call did without keeping a copy.
  struct Revision {
    std::uint64_t snapshot = 0;
    // Changes that say something new of the agent, not only when it was heard of.
    std::uint64_t evidence = 0;

    bool operator==(const Revision&) const = default;
  };

  TerminalAgentMonitor() = default;
  explicit TerminalAgentMonitor(TerminalAgentSnapshot snapshot) : snapshot_(std::move(snapshot)) {}

  // Absent until the first bind or observation, never afterwards.
  const std::optional<TerminalAgentSnapshot>& snapshot() const { return snapshot_; }
  const Revision& revision() const { return revision_; }
  // The token of the current grant; absent unless an integration is bound.
  const std::optional<std::string>& capability() const { return capability_; }
  // The shell command that carries the bound agent, when known.
  const std::optional<Uuid>& boundCommandID() const { return boundCommandID_; }
  bool isClosed() const { return isClosed_; }
  // The observed run whose end was seen last; later observations of it are ignored.
  const std::optional<Uuid>& retiredObservedRunID() const { return retiredObservedRunID_; }

  // An agent program was seen running, in the foreground or as a shell command, with the text of the screen
  // or without.
  void observe(TerminalAgentKind kind, const Uuid& runID, TerminalAgentSource source,
               std::optional<std::string_view> screen, Date now);
  void foregroundLost(Date now);

  // Called for every session in every turn of the loop: costs a comparison while nothing expires.
  void expire(Date now) {
    if (snapshot_ && snapshot_->expiresAt && now >= *snapshot_->expiresAt) decay(now);
  }

  // `isClosed` follows `closing`, also from yes to no.
  void exit(TerminalAgentReason reason, Date now, Closing closing);
  // The shell command with this identifier finished.
  void endObservedRun(const Uuid& runID, Date now);

  // Revokes an earlier grant. Throws Failure<TerminalAgentReportError>.
  TerminalAgentGrant bind(TerminalAgentKind kind, const std::optional<Uuid>& commandID, Date now);
  // Throws Failure<TerminalAgentReportError> and then changes nothing.
  void report(const TerminalAgentReport& report, Date now);

  bool operator==(const TerminalAgentMonitor&) const = default;

 private:
  void become(TerminalAgentSnapshot next);
  void decay(Date now);
  void refreshObserved(TerminalAgentSource source, std::optional<std::string_view> screen, Date now);
  void check(const TerminalAgentReport& report) const;

  std::optional<TerminalAgentSnapshot> snapshot_;
  std::optional<std::string> capability_;
  std::optional<Uuid> boundCommandID_;
  bool isClosed_ = false;
  std::optional<Uuid> retiredObservedRunID_;
  Revision revision_;
};

}  // namespace velotide
