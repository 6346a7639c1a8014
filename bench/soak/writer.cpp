#include "soak/writer.h"

#include <algorithm>
#include <stdexcept>

#include "end_to_end/base64.h"
#include "end_to_end/json_text.h"
#include "end_to_end/waiting.h"
#include "soak/patience.h"

namespace velotide::bench {
namespace {

constexpr int farewellStatus = 7;
constexpr std::string_view person = R"("source":"human")";
constexpr std::string_view agent = R"("source":"ai","owner":"soak")";
constexpr std::string_view otherAgent = R"("source":"ai","owner":"rival")";

}  // namespace

Writer::Writer(const ServiceProcess& service, Fleet& fleet, std::string program, Tally& tally,
               std::uint64_t seed, std::size_t first, std::size_t stride)
    : fleet_(fleet), program_(std::move(program)), tally_(tally), random_(seed), client_(service, tally) {
  for (std::size_t place = first; place < Fleet::echoing; place += stride) {
    Typing typing{place, {}, 0, {{}, {}, 0}};
    begin(typing, createMember(client_, program_, newPlan()));
    typings_.push_back(std::move(typing));
  }
}

ChildPlan Writer::newPlan() {
  ChildPlan plan;
  plan.kind = ChildPlan::Kind::echoing;
  plan.stream.seed = random_.next();
  plan.exitStatus = farewellStatus;
  return plan;
}

void Writer::begin(Typing& typing, Member member) {
  typing.member = std::move(member);
  typing.check = StreamCheck(typing.member.plan.stream, typing.member.session.generation, 0);
  // The record that the child writes once its terminal is raw.
  typing.accepted = KnownStream::recordBytes;
  fleet_.put(typing.place, typing.member);
}

void Writer::act() {
  Typing& typing = typings_[random_.below(typings_.size())];
  if (typing.check.position() == 0) awaitEcho(typing);
  const std::uint64_t whim = random_.below(100);
  if (whim == 0) return restart(typing);
  if (whim == 1) return replace(typing);
  if (whim < 40) return typeAsAgent(typing);
  typeAsPerson(typing);
}

void Writer::rest() {
  for (Typing& typing : typings_) awaitEcho(typing);
  client_.disconnect();
}

std::string Writer::inputFields(const Typing& typing, std::string_view sender, std::uint64_t sequence,
                                std::string_view bytes) const {
  const HostedSession& session = typing.member.session;
  return session.address() + R"(,"controlEpoch":)" + jsonText(session.controlEpoch) + "," +
         std::string(sender) + R"(,"inputSequence":)" + std::to_string(sequence) + R"(,"data":)" +
         jsonText(encodeBase64(bytes));
}

void Writer::type(Typing& typing, std::string_view sender, std::uint64_t pieces) {
  HostedSession& session = typing.member.session;
  for (; pieces > 0; --pieces) {
    const std::size_t count = random_.between(1, random_.oneIn(10) ? 65536 : 500);
    const std::string bytes = typing.member.plan.stream.at(typing.accepted, count);
    const Reply reply = client_.ask("input", inputFields(typing, sender, session.nextInputSequence, bytes));
    if (reply.error == "resource_limit") {
      awaitEcho(typing);
      continue;
    }
    if (!reply.ok()) throw std::runtime_error("input was refused: " + reply.error);
    ++session.nextInputSequence;
    typing.accepted += count;
    tally_.echoedBytes += count;
    if (random_.oneIn(8)) client_.repeat(reply);
  }
}

// Whatever of this were echoed would not be the stream.
void Writer::tryInVain(Typing& typing, std::string_view refusal, std::string_view sender,
                       std::uint64_t sequence) {
  client_.requireRefusal(refusal, "input", inputFields(typing, sender, sequence, "what nobody may type"));
}

void Writer::typeAsPerson(Typing& typing) {
  type(typing, person, random_.between(1, 6));
  const std::uint64_t next = typing.member.session.nextInputSequence;
  tryInVain(typing, "control_changed", person, random_.oneIn(2) ? next - 1 : next + 1);
  tryInVain(typing, "control_changed", agent, next);
  if (random_.oneIn(2)) awaitEcho(typing);
}

// What is still on its way is dropped when control changes.
void Writer::typeAsAgent(Typing& typing) {
  awaitEcho(typing);
  const std::string before = typing.member.session.controlEpoch;
  control(typing, "acquireControl");
  if (typing.member.session.controlEpoch == before)
    throw std::runtime_error("control taken without a new epoch");
  type(typing, agent, random_.between(1, 4));
  const std::uint64_t next = typing.member.session.nextInputSequence;
  tryInVain(typing, "control_owned", person, next);
  tryInVain(typing, "control_changed", otherAgent, next);
  tryInVain(typing, "control_changed", agent, next - 1);
  if (random_.oneIn(2)) control(typing, "renewControl");
  type(typing, agent, random_.between(1, 3));
  awaitEcho(typing);
  control(typing, "releaseControl");
  ++tally_.leases;
}

void Writer::control(Typing& typing, std::string_view action) {
  HostedSession& session = typing.member.session;
  const std::string record =
      client_.require(action, session.address() + R"(,"controlEpoch":)" + jsonText(session.controlEpoch) +
                                  R"(,"owner":"soak")");
  session = sessionIn(record, session.id);
  fleet_.put(typing.place, typing.member);
}

void Writer::awaitEcho(Typing& typing) {
  const auto deadline = attendedNow() + soakPatience;
  while (true) {
    const std::string record = client_.require(
        "read", typing.member.session.address() + typing.member.session.after(typing.check.position()));
    const CarriedOutput output = carriedOutputIn(record, scratch_).value();
    typing.check.accept(output, tally_);
    const std::uint64_t position = typing.check.position();
    if (position == typing.accepted) return;
    if (output.latest > typing.accepted || attendedNow() > deadline) {
      throw std::runtime_error("expected the echo of " + std::to_string(typing.accepted) + " bytes, seen " +
                               std::to_string(output.latest));
    }
    if (position == output.latest) pause(std::chrono::milliseconds(3));
  }
}

void Writer::awaitFarewell(Typing& typing) {
  const auto deadline = attendedNow() + soakPatience;
  while (true) {
    const std::string record = client_.require("getAgentState", typing.member.session.address());
    const SessionState state = stateIn(record, typing.member.session.id).value();
    if (!state.running) {
      if (state.exitStatus != farewellStatus)
        throw std::runtime_error("the status of an echo is not its own");
      typing.member.session.controlEpoch = state.controlEpoch;
      return;
    }
    if (attendedNow() > deadline) throw std::runtime_error("a child that said farewell still runs");
    pause(std::chrono::milliseconds(5));
  }
}

void Writer::restart(Typing& typing) {
  awaitEcho(typing);
  const HostedSession& session = typing.member.session;
  client_.require(
      "input", inputFields(typing, person, session.nextInputSequence, std::string(1, ChildPlan::farewell)));
  awaitFarewell(typing);
  awaitEcho(typing);
  fleet_.announceEnd(typing.place);
  begin(typing, restartMember(client_, program_, typing.member, newPlan()));
  ++tally_.restarts;
}

void Writer::replace(Typing& typing) {
  fleet_.announceEnd(typing.place);
  closeMember(client_, typing.member);
  ++tally_.closes;
  begin(typing, createMember(client_, program_, newPlan()));
}

}  // namespace velotide::bench
