#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "bridge/native_bridge.h"
#include "waits/wait_coordinator.h"

// What pending waits add to a published event, and what the mailbox costs a turn of the loop.
namespace velotide {
namespace {

const Uuid tab = Uuid::random();
constexpr int manyWaits = 128;

// A log with its waits. The session shows 200 commands of which the last runs, and the store 256 items that
// are older than every wait.
struct Waiting {
  Waiting() {
    commands.resize(200);
    for (TerminalRuntimeCommandInfo& command : commands) {
      command.id = Uuid::random();
      command.endedAt = Date{};
    }
    commands.back().endedAt.reset();
    items.resize(256);
    for (TerminalAttentionItem& item : items) {
      item.tabID = tab;
      active.push_back(&item);
    }
    agent.instanceID = agent.runID = Uuid::random();
    for (int each = 0; each < 1000; ++each)
      events.publish(Uuid::random(), TerminalSessionEventKind::outputChanged, Date{});
  }

  TerminalWaitTargetSnapshot target() const {
    const auto command = [this](const Uuid& id) -> std::optional<TerminalWaitCommandSnapshot> {
      for (auto each = commands.rbegin(); each != commands.rend(); ++each) {
        if (each->id == id) return TerminalWaitCommandSnapshot{each->endedAt.has_value(), each->state};
      }
      return std::nullopt;
    };
    return {.agent = &agent, .outputRevision = 1, .command = command};
  }

  void begin(TerminalWaitCondition condition, const Uuid& session) {
    const TerminalWaitSpec spec{.condition = condition,
                                .after = events.cursor(),
                                .tabID = session,
                                .commandID = commands.back().id,
                                .instanceID = agent.instanceID,
                                .runID = agent.runID,
                                .activity = TerminalAgentActivity::blocked,
                                .revision = 1,
                                .timeoutSeconds = 60};
    Uuid owner;
    for (int each = 0; each < manyWaits; ++each) {
      if (each % 16 == 0) owner = Uuid::random();
      waits.begin(Uuid::random().text(), owner.text(), spec, Date{});
    }
  }

  void publish() { events.publish(tab, TerminalSessionEventKind::outputChanged, Date{}, {.revision = 1}); }

  std::vector<TerminalRuntimeCommandInfo> commands;
  std::vector<TerminalAttentionItem> items;
  std::vector<const TerminalAttentionItem*> active;
  TerminalAgentSnapshot agent;
  TerminalSessionEventStore events{Uuid::random()};
  TerminalWaitCoordinator waits{{events, [this](const Uuid&) { return target(); },
                                 [this] { return std::span(std::as_const(active)); }, [] { return true; }}};
};

void publishToNobody(benchmark::State& state) {
  Waiting waiting;
  for ([[maybe_unused]] auto _ : state) waiting.publish();
}
BENCHMARK(publishToNobody);

// The waits stay pending. The log forgets the cursor of an attention wait after 1024 events, hence the new
// start.
void publishPast(benchmark::State& state, TerminalWaitCondition condition) {
  auto waiting = std::make_unique<Waiting>();
  waiting->begin(condition, tab);
  int published = 0;
  for ([[maybe_unused]] auto _ : state) {
    if (++published == 1000) {
      state.PauseTiming();
      waiting = std::make_unique<Waiting>();
      waiting->begin(condition, tab);
      published = 0;
      state.ResumeTiming();
    }
    waiting->publish();
  }
  if (waiting->waits.pendingCount() != manyWaits) state.SkipWithError("a wait has ended");
}
BENCHMARK_CAPTURE(publishPast, commandFinished, TerminalWaitCondition::commandFinished);
BENCHMARK_CAPTURE(publishPast, agentState, TerminalWaitCondition::agentState);
BENCHMARK_CAPTURE(publishPast, attention, TerminalWaitCondition::attention);
BENCHMARK_CAPTURE(publishPast, outputChanged, TerminalWaitCondition::outputChanged);

// The waits are about another session.
void publishElsewhere(benchmark::State& state) {
  Waiting waiting;
  waiting.begin(TerminalWaitCondition::outputChanged, Uuid::random());
  for ([[maybe_unused]] auto _ : state) waiting.publish();
}
BENCHMARK(publishElsewhere);

// One event ends all of them.
void publishToAll(benchmark::State& state) {
  Waiting waiting;
  for ([[maybe_unused]] auto _ : state) {
    state.PauseTiming();
    waiting.waits.drainCompletions();
    waiting.begin(TerminalWaitCondition::events, tab);
    state.ResumeTiming();
    waiting.publish();
  }
}
BENCHMARK(publishToAll)->Iterations(2000);

struct NoSessions final : BridgeSessions {
  bool contains(const Uuid&) const override { return false; }
  bool isRunning(const Uuid&) const override { return false; }
  const std::optional<TerminalAgentSnapshot>& agent(const Uuid&) const override { return none; }
  bool authorizes(const Uuid&, const std::optional<std::string>&) const override { return false; }
  void updateAgent(const Uuid&, const std::function<void(TerminalAgentMonitor&)>&) override {}

  std::optional<TerminalAgentSnapshot> none;
};

// Turns are a tenth of a millisecond apart, so that the rounds over the responses take their share.
void mailboxTurns(benchmark::State& state, int uncollected) {
  std::string root = "/tmp/velotide-bench-XXXXXX";
  if (::mkdtemp(root.data()) == nullptr) return state.SkipWithError("no temporary directory");
  {
    Waiting waiting;
    RuntimeNativeBridge bridge(root, waiting.events);
    bridge.setWaits(waiting.waits);
    NoSessions sessions;
    const SystemClock clock;
    for (int each = 0; each < uncollected; ++each) {
      waiting.waits.begin(Uuid::random().text(), Uuid::random().text(),
                          {.after = waiting.events.cursor(), .timeoutSeconds = 0}, clock.date());
      if (each % 64 == 0) bridge.process(sessions, clock.date());
    }
    Date now = clock.date();
    for ([[maybe_unused]] auto _ : state) bridge.process(sessions, now = now + 1e-4);
  }
  std::filesystem::remove_all(root);
}
BENCHMARK_CAPTURE(mailboxTurns, empty, 0);
BENCHMARK_CAPTURE(mailboxTurns, withUncollectedResponses, 256);

}  // namespace
}  // namespace velotide
