#include "commands/reminder_policy.h"

#include <gtest/gtest.h>

#include <limits>

#include "base/record.h"

namespace velotide {
namespace {

using State = TerminalCommandLifecycleState;

TEST(ReminderPolicy, RefusesLengthsThatAreNone) {
  const double infinite = std::numeric_limits<double>::infinity();
  const std::pair<double, bool> rows[] = {{0, true},
                                          {-0.0, true},
                                          {1e300, true},
                                          {-1, false},
                                          {infinite, false},
                                          {-infinite, false},
                                          {std::numeric_limits<double>::quiet_NaN(), false}};
  for (const auto& [length, valid] : rows) {
    EXPECT_EQ(TerminalReminderPolicy{.longCommandSeconds = length}.isValid(), valid) << length;
    EXPECT_EQ(TerminalReminderPolicy{.failureMinimumSeconds = length}.isValid(), valid) << length;
  }
}

TEST(ReminderPolicy, SilencesBellsWhileTheIntegrationSpeaks) {
  using Activity = TerminalAgentActivity;
  const TerminalReminderPolicy policy;
  EXPECT_TRUE(policy.allowsBell(std::nullopt, false));
  EXPECT_FALSE(policy.allowsBell(std::nullopt, true));
  EXPECT_FALSE(TerminalReminderPolicy{.bells = false}.allowsBell(std::nullopt, false));
  const std::pair<Activity, bool> rows[] = {{Activity::unknown, true},
                                            {Activity::working, false},
                                            {Activity::idle, false},
                                            {Activity::blocked, false},
                                            {Activity::exited, true}};
  for (const auto& [activity, allowed] : rows) {
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
  const struct {
    State state;
    Seconds duration;
    bool low, error, allowed;
  } rows[] = {{State::failed, 1, false, false, false},
              {State::failed, 1, false, true, true},
              {State::failed, 5, false, false, true},
              {State::failed, 500, true, true, false},
              {State::succeeded, 29.9, false, true, false},
              {State::succeeded, 30, true, false, true},
              {State::superseded, 500, false, true, false},
              {State::interrupted, 500, false, true, false},
              {State::completedUnknownStatus, 500, false, true, false},
              {State::running, 500, false, true, false}};
  const TerminalReminderPolicy silent{.commandFailures = false, .longCommandCompletion = false};
  for (const auto& row : rows) {
    EXPECT_EQ(TerminalReminderPolicy{}.allowsCommand(row.state, row.duration, row.low, row.error),
              row.allowed)
        << rawWord(row.state) << " " << row.duration;
    EXPECT_FALSE(silent.allowsCommand(row.state, row.duration, row.low, row.error));
  }
}

TEST(ReminderPolicy, KnowsCommandsThatTellNothing) {
  for (const char* text :
       {"", " \t\n\xe3\x80\x80", "cd", "command cd /tmp", "builtin cd", "/bin/pwd", "/bin/pwd/ x",
        "\xc2\xa0"
        "export\xe2\x80\x83X=1",
        "builtin command\tunset X"}) {
    EXPECT_TRUE(TerminalReminderPolicy::isLowInformationCommand(text)) << text;
  }
  for (const char* text :
       {"sudo cd", "CD", "cdx", "make", "cd;", "command", "builtin command", "/", "./cd/build"}) {
    EXPECT_FALSE(TerminalReminderPolicy::isLowInformationCommand(text)) << text;
  }
}

}  // namespace
}  // namespace velotide
