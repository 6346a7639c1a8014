#include "soak/fleet.h"

#include <stdexcept>

#include "end_to_end/json_text.h"
#include "end_to_end/waiting.h"
#include "soak/patience.h"

namespace velotide::bench {
namespace {

// Everything is worth a notice.
constexpr std::string_view policy =
    R"(,"reminderPolicy":{"bells":true,"commandFailures":true,"longCommandCompletion":true,)"
    R"("processExits":true,"longCommandSeconds":1,"failureMinimumSeconds":0})";

std::string launchOf(const std::string& program, const ChildPlan& plan) {
  std::string ignored;
  std::string fields = launchFields(plan.arguments(program), ignored);
  fields.erase(0, fields.find(R"(,"launch":)"));
  return fields.insert(fields.size() - 1, policy);
}

std::string controlOf(const Member& member) {
  return member.session.address() + R"(,"controlEpoch":)" + jsonText(member.session.controlEpoch);
}

}  // namespace

std::optional<Member> Fleet::at(std::size_t place) const {
  const std::lock_guard lock(mutex_);
  return members_[place];
}

void Fleet::put(std::size_t place, Member member) {
  const std::lock_guard lock(mutex_);
  members_[place] = std::move(member);
}

void Fleet::announceEnd(std::size_t place) {
  const std::lock_guard lock(mutex_);
  members_[place]->isLeaving = true;
}

void Fleet::requireLeaving(std::size_t place, const Member& member, std::string_view refusal) const {
  const std::optional<Member> now = at(place);
  if (!now || now->isLeaving || now->session.generation != member.session.generation) return;
  throw std::runtime_error("session " + member.session.id + " was refused as " + std::string(refusal) +
                           " though nobody closed or restarted it");
}

Member createMember(SteadyClient& client, const std::string& program, const ChildPlan& plan) {
  const auto deadline = attendedNow() + soakPatience;
  const std::string id = freshUuid();
  const std::string fields = R"(,"sessionID":)" + jsonText(id) + launchOf(program, plan);
  while (true) {
    const Reply reply = client.ask("create", fields);
    if (reply.ok()) return {sessionIn(reply.record, id), plan};
    if (reply.error != "resource_limit" || attendedNow() > deadline) {
      throw std::runtime_error("create was refused: " + reply.error);
    }
    pause(std::chrono::milliseconds(20));
  }
}

Member restartMember(SteadyClient& client, const std::string& program, const Member& before,
                     const ChildPlan& plan) {
  const std::string record = client.require("restartExited", controlOf(before) + launchOf(program, plan));
  return {sessionIn(record, before.session.id), plan};
}

void closeMember(SteadyClient& client, const Member& member) { client.require("close", controlOf(member)); }

std::optional<SessionState> stateIn(std::string_view record, const std::string& id) {
  const std::size_t at = record.find(R"({"id":)" + jsonText(id) + R"(,"revision":)");
  if (at == std::string_view::npos) return std::nullopt;
  const std::string_view session = record.substr(at);
  SessionState state;
  state.controlEpoch = requireText(session, "controlEpoch");
  const std::size_t running = session.find(R"("running":)");
  state.running = session.substr(running).starts_with(R"("running":true)");
  state.outputOffset = requireNumber(session, "outputOffset");
  if (!state.running) state.exitStatus = findNumber(session, "exitStatus");
  return state;
}

}  // namespace velotide::bench
