#include "end_to_end/crowd.h"

#include <algorithm>
#include <numeric>

#include "end_to_end/json_text.h"
#include "end_to_end/printing.h"
#include "end_to_end/stream.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

constexpr double mebibyte = 1024 * 1024;
constexpr std::uint64_t endless = std::uint64_t{1} << 50;

}  // namespace

Crowd::Crowd(const Options& options, const ServiceProcess& service, std::size_t count) : service_(service) {
  WireClient client = service.connect();
  for (std::size_t index = 0; index < count; ++index) {
    sessions_.push_back(createSession(client, printingChild(options, endless)));
  }
  while (std::ranges::any_of(printed(), [](std::uint64_t bytes) { return bytes < readyMark.size(); })) {
    pause(std::chrono::milliseconds(5));
  }
}

void Crowd::start() {
  WireClient client = service_.connect();
  for (HostedSession& session : sessions_) client.call("input", session.inputFields(startByte));
  pause(std::chrono::milliseconds(200));
}

Crowd::Rates Crowd::rates() const {
  const auto begin = Clock::now();
  const std::vector<std::uint64_t> before = printed();
  pause(std::chrono::milliseconds(1500));
  std::vector<std::uint64_t> grown = printed();
  const double seconds = secondsBetween(begin, Clock::now());
  std::ranges::transform(grown, before, grown.begin(), std::minus());
  const auto total = static_cast<double>(std::accumulate(grown.begin(), grown.end(), std::uint64_t{0}));
  const double share = total / static_cast<double>(grown.size());
  return {total / mebibyte / seconds, static_cast<double>(std::ranges::min(grown)) / share};
}

void Crowd::close() {
  WireClient client = service_.connect();
  for (const HostedSession& session : sessions_) closeSession(client, session);
}

std::vector<std::uint64_t> Crowd::printed() const {
  WireClient client = service_.connect();
  const std::string list = client.call("list");
  std::vector<std::uint64_t> offsets;
  for (const HostedSession& session : sessions_) {
    const std::size_t at = list.find(R"("id":")" + session.id);
    if (at == std::string::npos) throw std::runtime_error("a printing session is gone");
    offsets.push_back(requireNumber(std::string_view(list).substr(at), "outputOffset"));
  }
  return offsets;
}

}  // namespace velotide::bench
