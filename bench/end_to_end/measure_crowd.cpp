#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "end_to_end/crowd.h"
#include "end_to_end/json_text.h"
#include "end_to_end/measures.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

constexpr std::size_t mostSessions = 64;
// As many as there may be clients, less those that ask.
constexpr std::size_t subscribers = 30;
constexpr int waits = 128;
constexpr int waitsOfOneOwner = 16;

Crowd::Rates ratesOf(const Options& options, const ServiceProcess& service, std::size_t count) {
  Crowd crowd(options, service, count);
  crowd.start();
  const Crowd::Rates rates = crowd.rates();
  crowd.close();
  return rates;
}

// 63 idle sessions with five failed commands each, which fill the list of attention items; and subscribers to
// them.
class Burden {
 public:
  explicit Burden(const ServiceProcess& service) : service_(service) {
    createSessions();
    for (std::size_t index = 0; index < subscribers; ++index) {
      subscribers_.push_back(service.connect());
      subscribers_.back().call("subscribe", sessions_[index].address());
    }
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (items() < 256) {
      if (Clock::now() > deadline) throw std::runtime_error("no 256 attention items were raised");
      pause(std::chrono::milliseconds(20));
    }
  }

  // Waits that look at all that the session prints and are never met.
  void addWaits(const HostedSession& session) {
    const std::string directory = service_.root() + "/native-tools/requests/";
    const std::string epoch = metadataText("appEpoch");
    std::string owner;
    for (int index = 0; index < waits; ++index) {
      if (index % waitsOfOneOwner == 0) owner = freshUuid();
      const std::string id = freshUuid();
      const std::string path = directory + id;
      const mode_t mask = ::umask(0077);
      std::ofstream(path + ".part")
          << R"({"id":")" << id << R"(","action":"wait_session","controlID":")" << owner
          << R"(","waitSpec":{"condition":"outputChanged","tabID":")" << session.id
          << R"(","revision":1000000000000,"timeoutSeconds":60,"after":{"appEpoch":")" << epoch
          << R"(","sequence":0}}})";
      ::umask(mask);
      std::filesystem::rename(path + ".part", path + ".json");
    }
    while (!std::filesystem::is_empty(directory)) pause(std::chrono::milliseconds(5));
    if (!std::filesystem::is_empty(service_.root() + "/native-tools/responses")) {
      throw std::runtime_error("a wait was refused");
    }
  }

  // After their session was closed; every one of them answers, and makes room for the next round's.
  void awaitAnswers() {
    const std::filesystem::path responses(service_.root() + "/native-tools/responses");
    const auto answered = [&] {
      return std::distance(std::filesystem::directory_iterator(responses), {}) >= waits;
    };
    while (!answered()) pause(std::chrono::milliseconds(5));
    for (const auto& entry : std::filesystem::directory_iterator(responses)) {
      std::filesystem::remove(entry.path());
    }
  }

 private:
  void createSessions() {
    WireClient client = service_.connect();
    while (sessions_.size() < mostSessions - 1) sessions_.push_back(createWithItems(client));
  }

  static HostedSession createWithItems(WireClient& client) {
    const std::string script =
        R"(for n in 1 2 3 4 5; do printf '\033]777;Velotide;start=6D616B65\033\\\033]777;Velotide;end=1\033\\'; done)"
        "; exec sleep 1000";
    std::string id;
    std::string fields = launchFields({"/bin/sh", "-c", script}, id);
    fields.insert(fields.size() - 1,
                  R"(,"reminderPolicy":{"bells":true,"commandFailures":true,"longCommandCompletion":true,)"
                  R"("processExits":false,"longCommandSeconds":30,"failureMinimumSeconds":0})");
    return sessionIn(client.call("create", fields), id);
  }

  std::size_t items() const {
    WireClient client = service_.connect();
    const std::string list = client.call("listAttention");
    std::size_t count = 0;
    for (std::size_t at = list.find(R"("kind":)"); at != std::string::npos;
         at = list.find(R"("kind":)", at + 1)) {
      ++count;
    }
    return count;
  }

  std::string metadataText(std::string_view name) const {
    std::ifstream file(service_.root() + "/native-tools/runtime.json");
    return requireText(std::string(std::istreambuf_iterator<char>(file), {}), name);
  }

  const ServiceProcess& service_;
  std::vector<HostedSession> sessions_;
  std::vector<WireClient> subscribers_;
};

}  // namespace

// The floor here is one session alone.
void measureCrowd(const Options& options, Report& report) {
  const ServiceProcess service(options.runtime);
  Pairs pairs;
  std::vector<double> shares;
  for (int round = 0; round < options.rounds; ++round) {
    const Crowd::Rates alone = ratesOf(options, service, 1);
    const Crowd::Rates all = ratesOf(options, service, mostSessions);
    pairs.add(all.mebibytesPerSecond, alone.mebibytesPerSecond);
    shares.push_back(all.leastShare);
  }
  report.add("output, 64 sessions (floor: one)", "MiB/s", pairs, {Target::Kind::ratioAtLeast, 0.85});
  report.addService("output, 64 sessions, least share", "of fair", median(shares),
                    {Target::Kind::serviceAbove, 0.5});
}

// The floor here is the same service with nothing else to care for.
void measureBurden(const Options& options, Report& report) {
  const ServiceProcess plain(options.runtime);
  const ServiceProcess burdened(options.runtime);
  Burden burden(burdened);
  Pairs pairs;
  for (int round = 0; round < options.rounds; ++round) {
    const Crowd::Rates floor = ratesOf(options, plain, 1);
    Crowd crowd(options, burdened, 1);
    burden.addWaits(crowd.sessions().front());
    crowd.start();
    pairs.add(crowd.rates().mebibytesPerSecond, floor.mebibytesPerSecond);
    crowd.close();
    burden.awaitAnswers();
  }
  report.add("output beside 128 waits, 30 subscribers, 256 items", "MiB/s", pairs,
             {Target::Kind::ratioAtLeast, 0.8});
}

}  // namespace velotide::bench
