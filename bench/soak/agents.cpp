#include <array>
#include <stdexcept>

#include "end_to_end/json_text.h"
#include "soak/visitors.h"

namespace velotide::bench {
namespace {

constexpr std::array<std::string_view, 3> kinds{"claude", "codex", "tesseral"};
constexpr std::array<std::string_view, 5> activities{
    R"("working")", R"("blocked","blockReason":"approval")", R"("blocked","blockReason":"question")",
    R"("idle","result":"completed")", R"("idle","result":"failed")"};
constexpr std::string_view exited = R"("exited","result":"interrupted")";

}  // namespace

AgentUser::AgentUser(const ServiceProcess& service, const Fleet& fleet, Tally& tally, std::uint64_t seed)
    : fleet_(fleet), tally_(tally), random_(seed), client_(service, tally) {}

// Even places: the others are those of the agents that bind through the mailbox.
void AgentUser::act() {
  place_ = 2 * random_.between((Fleet::echoing + 1) / 2, (Fleet::size - 1) / 2);
  const auto member = fleet_.at(place_);
  if (!member || member->isLeaving || member->plan.length != 0) return;
  member_ = *member;
  const std::string_view kind = kinds[random_.below(kinds.size())];
  if (!succeeds("bindAgent", R"(,"agentKind":)" + jsonText(kind))) return;
  const std::string grant = record_.substr(record_.find(R"("agentGrant":)"));
  for (std::uint64_t sequence = 1; sequence <= random_.between(2, 8); ++sequence) {
    if (!report(grant, sequence, activities[random_.below(activities.size())])) return;
    pause(std::chrono::milliseconds(random_.below(50)));
  }
  if (!succeeds("getAgentState", {})) return;
  if (random_.oneIn(2)) report(grant, 100, exited);
  if (!succeeds("inspectInput", {})) return;
  const std::string size = std::to_string(random_.between(1, 1000));
  succeeds("resize", R"(,"columns":)" + size + R"(,"rows":)" + size);
}

// False when the session ended meanwhile.
bool AgentUser::succeeds(std::string_view action, const std::string& fields) {
  Reply reply = client_.ask(action, member_.session.address() + fields);
  record_ = std::move(reply.record);
  if (reply.ok()) return true;
  fleet_.requireLeaving(place_, member_, std::string(action) + ": " + reply.error);
  return false;
}

bool AgentUser::report(const std::string& grant, std::uint64_t sequence, std::string_view activity) {
  const auto fields = [&](std::uint64_t number, const std::string& token) {
    return R"(,"agentReport":{"instanceID":)" + jsonText(requireText(grant, "instanceID")) + R"(,"runID":)" +
           jsonText(requireText(grant, "runID")) + R"(,"token":)" + jsonText(token) + R"(,"sequence":)" +
           std::to_string(number) + R"(,"activity":)" + std::string(activity) + "}";
  };
  if (!succeeds("reportAgent", fields(sequence, requireText(grant, "token")))) return false;
  ++tally_.reports;
  if (!random_.oneIn(4)) return true;
  const std::string forged = fields(sequence + 1, std::string(72, 'f'));
  const Reply reply = client_.ask("reportAgent", member_.session.address() + forged);
  if (reply.ok()) throw std::runtime_error("a report with a forged token was accepted");
  ++tally_.refusals;
  return true;
}

}  // namespace velotide::bench
