#include "commands/reminder_policy.h"

#include <gtest/gtest.h>

#include "base/record.h"

namespace velotide {
namespace {

TEST(ReminderPolicy, SilencesBellsWhileTheIntegrationSpeaks) {
  using Activity = TerminalAgentActivity;
  const TerminalReminderPolicy policy;
  EXPECT_TRUE(policy.allowsBell(std::nullopt, false));
  EXPECT_FALSE(policy.allowsBell(std::nullopt, true));
  EXPECT_FALSE(TerminalReminderPolicy{.bells = false}.allowsBell(std::nullopt, false));
  for (const auto& [activity, allowed] :
       {std::pair{Activity::unknown, true}, std::pair{Activity::working, false},
        std::pair{Activity::idle, false}, std::pair{Activity::blocked, false},
        std::pair{Activity::exited, true}}) {
    TerminalAgentSnapshot agent;
    agent.activity = activity;
    agent.source = TerminalAgentSource::integration;
    EXPECT_EQ(policy.allowsBell(agent, false), allowed) << rawWord(activity);
    agent.source = TerminalAgentSource::foregroundProcess;
    EXPECT_TRUE(policy.allowsBell(agent, false)) << rawWord(activity);
    EXPECT_FALSE(policy.allowsBell(agent, true)) << rawWord(activity);
  }
}

TEST(ReminderPolicy, WeighsCommandsByOutcomeAndLength) {
  using State = TerminalCommandLifecycleState;
  struct Row {
    State state;
    Seconds duration;
    bool low, error, allowed;
  };
  const TerminalReminderPolicy silent{.commandFailures = false, .longCommandCompletion = false};
  for (const auto& [state, duration, low, error, allowed] :
       {Row{State::failed, 1, false, false, false}, Row{State::failed, 1, false, true, true},
        Row{State::failed, 5, false, false, true}, Row{State::failed, 500, true, true, false},
        Row{State::succeeded, 29.9, false, true, false}, Row{State::succeeded, 30, true, false, true},
        Row{State::superseded, 500, false, true, false}, Row{State::interrupted, 500, false, true, false},
        Row{State::completedUnknownStatus, 500, false, true, false},
        Row{State::running, 500, false, true, false}}) {
    EXPECT_EQ(TerminalReminderPolicy{}.allowsCommand(state, duration, low, error), allowed)
        << rawWord(state) << " " << duration;
    EXPECT_FALSE(silent.allowsCommand(state, duration, low, error));
  }
}

TEST(ReminderPolicy, KnowsCommandsThatTellNothing) {
  for (const char* text : {"", " \t\n\u3000", "cd", "command cd /tmp", "builtin cd", "/bin/pwd",
                           "/bin/pwd/ x", "\u00A0export\u2003X=1", "builtin command\tunset X"})
    EXPECT_TRUE(TerminalReminderPolicy::isLowInformationCommand(text)) << text;
  for (const char* text :
       {"sudo cd", "CD", "cdx", "make", "cd;", "command", "builtin command", "/", "./cd/build"})
    EXPECT_FALSE(TerminalReminderPolicy::isLowInformationCommand(text)) << text;
}

}  // namespace
}  // namespace velotide
