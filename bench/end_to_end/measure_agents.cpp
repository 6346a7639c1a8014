#include <algorithm>
#include <string>
#include <vector>

#include "end_to_end/json_text.h"
#include "end_to_end/measures.h"
#include "end_to_end/platform.h"
#include "end_to_end/service_process.h"
#include "end_to_end/waiting.h"
#include "end_to_end/wire_client.h"

namespace velotide::bench {
namespace {

constexpr int warmUps = 50;
constexpr int rounds = 500;
constexpr int reportsPerBatch = 100;
constexpr std::chrono::milliseconds batchPeriod{10};  // 10,000 reports a second
constexpr int batches = 300;

// An agent in a session, seen from its integration.
class ReportingAgent {
 public:
  ReportingAgent(WireClient& client, const HostedSession& session) : session_(session) {
    const std::string answer = client.call("bindAgent", session.address() + R"(,"agentKind":"claude")");
    const std::string grant = answer.substr(answer.find(R"("agentGrant":)"));
    start_ = session.address() + R"(,"agentReport":{"instanceID":)" +
             jsonText(requireText(grant, "instanceID")) + R"(,"runID":)" +
             jsonText(requireText(grant, "runID")) + R"(,"token":)" + jsonText(requireText(grant, "token")) +
             R"(,"sequence":)";
  }

  // The fields of the next report.
  std::string report(std::string_view state) {
    return start_ + std::to_string(++sequence_) + R"(,"activity":)" + std::string(state) + "}";
  }

 private:
  HostedSession session_;
  std::string start_;
  std::uint64_t sequence_ = 0;
};

constexpr std::string_view working = R"("working")";
constexpr std::string_view blocked = R"("blocked","blockReason":"approval")";

void awaitPush(WireClient& subscriber, std::string_view text) {
  while (subscriber.receive().find(text) == std::string_view::npos) {
  }
}

double medianToItem(const ServiceProcess& service) {
  WireClient integration = service.connect();
  const HostedSession session = createSession(integration, {"/bin/cat"});
  ReportingAgent agent(integration, session);
  WireClient subscriber = service.connect();
  subscriber.call("subscribe", session.address());
  std::vector<double> milliseconds;
  for (int round = 0; round < warmUps + rounds; ++round) {
    integration.call("reportAgent", agent.report(working));
    awaitPush(subscriber, R"("attention":[])");
    const auto begin = Clock::now();
    integration.send("reportAgent", agent.report(blocked));
    awaitPush(subscriber, R"("attention":[{)");
    if (round >= warmUps) milliseconds.push_back(secondsBetween(begin, Clock::now()) * 1000);
    integration.receive();
  }
  return median(milliseconds);
}

struct Flood {
  double reportsPerSecond = 0;
  double addedMebibytes = 0;
  double answerMilliseconds = 0;
};

// One session's agent reports without a break; somebody else asks between the batches.
Flood flood(const ServiceProcess& service) {
  WireClient integration = service.connect();
  ReportingAgent agent(integration, createSession(integration, {"/bin/cat"}));
  WireClient other = service.connect();
  std::vector<double> answers;
  double before = 0;
  const auto begin = Clock::now();
  for (int batch = 0; batch < batches; ++batch) {
    if (batch == batches / 3) before = static_cast<double>(residentBytes(service.id()));
    for (int index = 0; index < reportsPerBatch; ++index) {
      integration.send("reportAgent", agent.report(index % 2 == 0 ? working : blocked));
    }
    const auto asked = Clock::now();
    other.call("hello");
    answers.push_back(secondsBetween(asked, Clock::now()) * 1000);
    for (int index = 0; index < reportsPerBatch; ++index) {
      if (integration.receive().find(R"("ok":true)") == std::string_view::npos) {
        throw std::runtime_error("a report was refused");
      }
    }
    const auto next = begin + (batch + 1) * batchPeriod;
    if (Clock::now() < next)
      pause(std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()));
  }
  const double added = static_cast<double>(residentBytes(service.id())) - before;
  return {batches * reportsPerBatch / secondsBetween(begin, Clock::now()), added / (1024 * 1024),
          median(answers)};
}

}  // namespace

void measureAgents(const Options& options, Report& report) {
  const ServiceProcess service(options.runtime);
  report.addService("agent's report to pushed item", "ms", medianToItem(service),
                    {Target::Kind::serviceBelow, 1});
  const Flood reports = flood(service);
  report.addService("agent's reports, one session", "1/s", reports.reportsPerSecond,
                    {Target::Kind::serviceAbove, 9500});
  report.addService("agent's reports, memory added", "MiB", reports.addedMebibytes,
                    {Target::Kind::serviceBelow, 1});
  report.addService("agent's reports, answer to another client", "ms", reports.answerMilliseconds,
                    {Target::Kind::serviceBelow, 5});
}

}  // namespace velotide::bench
