#include "agents/agent_monitor.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "support/refusal.h"

namespace velotide {
namespace {

using Activity = TerminalAgentActivity;
using Kind = TerminalAgentKind;
using Source = TerminalAgentSource;

// One call of the monitor and the state it leaves, or the word of its refusal; "=" says that nothing changed.
struct Step {
  Seconds at;
  std::string operation;
  std::string outcome;
};

class AgentMonitor : public testing::Test {
 protected:
  void play(std::initializer_list<Step> script) {
    for (const Step& step : script) {
      const TerminalAgentMonitor before = monitor;
      std::string outcome =
          refusal<TerminalAgentReportError>([&] { perform(step.operation, Date{step.at}); });
      if (outcome.empty() && monitor == before) outcome = "=";
      if (monitor != before) outcome += state();
      if (instanceOf(monitor) != instanceOf(before)) outcome += " new";
      EXPECT_EQ(outcome, step.outcome) << step.operation << " at " << step.at;
    }
  }
  static Uuid instanceOf(const TerminalAgentMonitor& of) {
    return of.snapshot() ? of.snapshot()->instanceID : Uuid{};
  }

  // bind [RUN] | report ACTIVITY [/BLOCK] [+RESULT] [#SEQUENCE] | shell RUN KIND | process RUN KIND [SCREEN]
  // | end RUN | lost | expire | exit | close
  void perform(const std::string& operation, Date now) {
    std::istringstream words(operation);
    std::string verb, first, word;
    words >> verb >> first;
    if (verb == "bind") {
      grant = monitor.bind(Kind::codex, first.empty() ? std::nullopt : std::optional(runOf(first)), now);
      sequence = 0;
    } else if (verb == "report") {
      TerminalAgentReport report = reportOf(*fromRawWord<Activity>(first));
      while (words >> word) {
        if (word[0] == '/') report.blockReason = fromRawWord<TerminalAgentBlockReason>(word.substr(1));
        if (word[0] == '+') report.result = fromRawWord<TerminalAgentResult>(word.substr(1));
        if (word[0] == '#') report.sequence = std::stoull(word.substr(1));
      }
      monitor.report(report, now);
    } else if (verb == "shell" || verb == "process") {
      std::string screen;
      words >> word >> screen;
      std::optional<std::string_view> text;
      if (!screen.empty()) text = screen == "asks" ? "Do you want to proceed?\n❯ 1. Yes\n2. No" : "";
      const Source source = verb == "shell" ? Source::shellCommand : Source::foregroundProcess;
      monitor.observe(*fromRawWord<Kind>(word), runOf(first), source, text, now);
    } else if (verb == "end") {
      monitor.endObservedRun(runOf(first), now);
    } else if (verb == "lost") {
      monitor.foregroundLost(now);
    } else if (verb == "expire") {
      monitor.expire(now);
    } else {
      monitor.exit(TerminalAgentReason::processExited, now,
                   verb == "close" ? TerminalAgentMonitor::Closing::yes : TerminalAgentMonitor::Closing::no);
    }
  }

  // Activity/block+result source confidence reason updated-expires #sequence, then what else is set.
  std::string state() const {
    std::string text;
    if (monitor.snapshot()) {
      const TerminalAgentSnapshot& seen = *monitor.snapshot();
      text = rawWord(seen.activity);
      if (seen.blockReason) text += "/" + std::string(rawWord(*seen.blockReason));
      if (seen.lastResult) text += "+" + std::string(rawWord(*seen.lastResult));
      for (const auto word : {rawWord(seen.source), rawWord(seen.confidence), rawWord(seen.reason)})
        text += " " + std::string(word);
      text += " " + std::to_string(int(seen.updatedAt.sinceReference)) + "-";
      if (seen.expiresAt) text += std::to_string(int(seen.expiresAt->sinceReference));
      text += " #" + std::to_string(seen.reportSequence);
      EXPECT_EQ(seen.ruleVersion, 2);
    }
    if (monitor.capability()) text += " granted";
    if (monitor.boundCommandID()) text += monitor.boundCommandID() == runA ? " A" : " B";
    return text + (monitor.isClosed() ? " closed" : "");
  }

  Uuid runOf(const std::string& name) const {
    return name == "own" ? grant.runID : name == "A" ? runA : runB;
  }
  TerminalAgentReport reportOf(Activity activity) {
    return {grant.instanceID, grant.runID, grant.token, ++sequence, activity, {}, {}, {}};
  }
  std::string reported(TerminalAgentReport report, auto change) {
    change(report);
    return refusal<TerminalAgentReportError>([&] { monitor.report(report, Date{}); });
  }

  const Uuid runA = Uuid::random(), runB = Uuid::random();
  TerminalAgentMonitor monitor;
  TerminalAgentGrant grant;
  std::uint64_t sequence = 0;
};

TEST_F(AgentMonitor, FollowsAnIntegration) {
  play({{0, "bind", "unknown integration high bound 0-120 #0 granted new"},
        {1, "report working #0", "staleSequence"},
        {1, "report working #1", "working integration high reported 1-121 #1 granted"},
        {1, "report working #1", "staleSequence"},
        {2, "report blocked /approval #5", "blocked/approval integration high reported 2-122 #5 granted"},
        {3, "report idle +completed #6", "idle+completed integration high reported 3-123 #6 granted"},
        {4, "report blocked /other #7", "blocked/other+completed integration high reported 4-124 #7 granted"},
        {5, "report working #8", "working integration high reported 5-125 #8 granted"}});
  play({Step{6, "report blocked #9", "invalidState"}, Step{6, "report idle /approval #9", "invalidState"},
        Step{6, "report blocked /other +failed #9", "invalidState"},
        Step{6, "report working +completed #9", "invalidState"},
        Step{6, "report blocked #8", "staleSequence"}});
  play({{6, "report exited +failed #9", "exited+failed integration high reported 6- #9"},
        {7, "report working #10", "invalidCapability"},
        {8, "exit", "="},
        {9, "close", "exited+failed integration high reported 6- #9 closed"},
        {9, "bind", "unavailable"},
        {9, "shell A codex", "="},
        {9, "exit", "exited+failed integration high reported 6- #9"},
        {10, "bind A", "unknown integration high bound 10-130 #0 granted A new"},
        {11, "report exited", "exited integration high reported 11- #1 A"},
        {12, "end A", "exited integration high reported 11- #1"}});
}

TEST_F(AgentMonitor, ForgetsWhatIsNotRenewed) {
  play({{0, "bind", "unknown integration high bound 0-120 #0 granted new"},
        {100, "report blocked /question", "blocked/question integration high reported 100-220 #1 granted"},
        {219.999, "expire", "="},
        {220, "expire", "unknown integration high expired 220- #1 granted"},
        {500, "expire", "="},
        {600, "report working", "working integration high reported 600-720 #2 granted"},
        {601, "report idle +failed", "idle+failed integration high reported 601-721 #3 granted"},
        {602, "close", "exited+failed integration high processExited 602- #3 closed"}});
}

TEST_F(AgentMonitor, FollowsAnObservedRun) {
  play({Step{0, "expire", "="}, Step{0, "lost", "="}, Step{0, "end A", "="}, Step{0, "exit", "="}});
  play({{0, "shell A codex", "unknown shellCommand medium foregroundDetected 0-15 #0 new"},
        {0, "shell A codex", "="},
        {1, "process A codex asks", "blocked/approval foregroundProcess low screenApproval 1-16 #0"},
        {2, "lost", "unknown foregroundProcess low foregroundLost 2- #0"},
        {3, "lost", "="},
        {4, "process A codex asks", "blocked/approval foregroundProcess low screenApproval 4-19 #0"},
        {5, "process A codex blank", "unknown foregroundProcess low unrecognizedScreen 5-20 #0"},
        {20, "expire", "unknown foregroundProcess low expired 20- #0"},
        {21, "end B", "="},
        {22, "end A", "exited+unknown foregroundProcess low commandEnded 22- #0"},
        {23, "shell A claude", "="},
        {24, "process B codex", "unknown foregroundProcess medium foregroundDetected 24-39 #0 new"},
        {25, "exit", "exited+unknown foregroundProcess medium processExited 25- #0"},
        {26, "process B codex asks", "="},
        {26, "lost", "="},
        {27, "process B claude", "unknown foregroundProcess medium foregroundDetected 27-42 #0 new"},
        {28, "end B", "exited+unknown foregroundProcess medium commandEnded 28- #0"},
        {29, "shell A codex", "unknown shellCommand medium foregroundDetected 29-44 #0 new"}});
}

TEST_F(AgentMonitor, IsDisplacedFromABindingOnlyByItsShellCommand) {
  const std::string bound = "unknown integration high bound 0-120 #0 granted";
  play({Step{0, "bind", bound + " new"}, Step{1, "process A claude", "="}, Step{1, "lost", "="},
        Step{1, "end own", "="}, Step{2, "shell A codex", bound + " A"}, Step{3, "shell A claude", "="},
        Step{4, "end A", "exited+unknown integration high commandEnded 4- #0"},
        Step{0, "bind A", bound + " A new"},
        Step{6, "shell B codex", "unknown shellCommand medium foregroundDetected 6-21 #0 new"},
        Step{7, "report working", "invalidCapability"}, Step{0, "bind", bound + " new"},
        Step{8, "shell A claude", "unknown shellCommand medium foregroundDetected 8-23 #0 new"}});
}

TEST_F(AgentMonitor, RefusesForgedReports) {
  perform("bind", {});
  const TerminalAgentGrant revoked = grant;
  perform("bind", {});
  EXPECT_EQ(grant.token.size(), 72U);
  const TerminalAgentReport good = reportOf(Activity::working);
  const char* const refused = "invalidCapability";
  EXPECT_EQ(reported(good, [&](auto& report) { report.instanceID = revoked.instanceID; }), refused);
  EXPECT_EQ(reported(good, [&](auto& report) { report.runID = revoked.runID; }), refused);
  EXPECT_EQ(reported(good, [&](auto& report) { report.token = revoked.token; }), refused);
  EXPECT_EQ(reported(good, [](auto& report) { report.token.pop_back(), report.sequence = 0; }), refused);
  using Row = std::pair<std::string, const char*>;
  for (const auto& [text, word] :
       {Row{std::string(128, 'a'), ""}, Row{std::string(129, 'a'), "invalidState"},
        Row{"aZ09-_:./é任务٣", ""}, Row{"", "invalidState"}, Row{"a b", "invalidState"},
        Row{std::string(1, '\0'), "invalidState"}, Row{"a@", "invalidState"}, Row{"😀", "invalidState"}}) {
    const TerminalAgentReportedContext task{runA, text, {}}, gate{runA, {}, text};
    EXPECT_EQ(reported(reportOf(Activity::idle), [&](auto& report) { report.context = task; }), word) << text;
    EXPECT_EQ(reported(reportOf(Activity::idle), [&](auto& report) { report.context = gate; }), word) << text;
  }
  EXPECT_TRUE(monitor.snapshot()->context);
  EXPECT_EQ(reported(reportOf(Activity::idle), [](auto&) {}), "");
  EXPECT_FALSE(monitor.snapshot()->context);
}

}  // namespace
}  // namespace velotide
