#include "base/record.h"
#include "bridge/request_performer.h"
#include "chunks.h"
#include "support/manual_clock.h"

using namespace velotide;

namespace {

constexpr std::string_view tabText = "00000000-0000-4000-8000-000000000000";

// One running session with an agent.
class OneSession : public BridgeSessions {
 public:
  explicit OneSession(TerminalSessionEventStore& events) : events_(events) {}

  bool contains(const Uuid& tabID) const override { return tabID == Uuid::parse(tabText); }
  bool isRunning(const Uuid&) const override { return true; }
  const std::optional<TerminalAgentSnapshot>& agent(const Uuid&) const override { return monitor.snapshot(); }
  bool authorizes(const Uuid&, const std::optional<std::string>& token) const override {
    return token == "key";
  }
  void updateAgent(const Uuid& tabID, const std::function<void(TerminalAgentMonitor&)>& change) override {
    change(monitor);
    events_.publish(tabID, TerminalSessionEventKind::agentChanged, {}, {.agent = monitor.snapshot()});
  }

  TerminalAgentMonitor monitor;

 private:
  TerminalSessionEventStore& events_;
};

void requireSound(const RuntimeNativeResponse& response) {
  ByteQueue text;
  JsonDocument document;
  require(encodeText(text, response));
  require(decodeText<RuntimeNativeResponse>(document, text.mutableText()) == response);
  require(response.ok == !response.error);
}

}  // namespace

// Each line is the content of a request file. What is a request is answered once, now or by the wait it
// began.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ManualClock clock;
  const Date now = clock.date();
  TerminalSessionEventStore events(Uuid{}, 8);
  TerminalAttentionStore attention(events, clock);
  OneSession session(events);
  TerminalWaitCoordinator waits({events,
                                 [&](const Uuid&) {
                                   const auto& agent = session.monitor.snapshot();
                                   return TerminalWaitTargetSnapshot{agent ? &*agent : nullptr, 3};
                                 },
                                 [&] { return attention.activeView(); }, [] { return true; }});
  ByteQueue input;
  JsonDocument document;
  input.append(ByteView{data, size});
  std::size_t begun = 0;
  std::size_t ended = 0;
  const auto collect = [&] {
    for (TerminalWaitResult& result : waits.drainCompletions()) {
      ++ended;
      requireSound(waitResponse(std::move(result), events));
    }
  };
  for (std::size_t length; (length = input.text().find('\n')) != std::string_view::npos;) {
    const auto request = decodeText<RuntimeNativeRequest>(document, input.mutableText().first(length));
    input.consume(length + 1);
    if (!request) continue;
    const auto response = performRequest(*request, {events, &waits, &attention}, session, now);
    if (response) requireSound(*response);
    begun += !response;
    require(waits.pendingCount() + waits.completionCount() <= TerminalWaitCoordinator::maximumWaiters);
    if (length % 2 == 0) collect();
  }
  waits.expire(now + TerminalWaitCoordinator::maximumTimeout);
  collect();
  require(begun == ended && waits.pendingCount() == 0);
  return 0;
}
