#include "end_to_end/subscriber.h"

#include <stdexcept>

#include "end_to_end/json_text.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {

Subscriber::Subscriber(const ServiceProcess& service, const HostedSession& session, std::uint64_t textBytes,
                       StreamReceiver::Check check)
    : service_(service), session_(session), receiver_(textBytes, check), client_(service.connect()) {
  subscribe();
}

void Subscriber::subscribe() {
  client_.send("subscribe", session_.address() + session_.after(receiver_.position()));
}

void Subscriber::receive() {
  if (!client_.lines().fill(client_.descriptor())) {
    ++cutOffs_;
    client_ = service_.connect();
    subscribe();
    return;
  }
  while (const auto line = client_.lines().next()) {
    if (const auto batch = outputIn(*line, scratch_)) {
      receiver_.accept(batch->base64, batch->end);
    } else if (line->find(R"("ok":false)") != std::string_view::npos) {
      throw std::runtime_error("a subscription failed: " + requireText(*line, "error"));
    }
  }
}

// A lone subscriber decodes, as the relay's other end does. Sixteen in one process would be slower than the
// service if they all did: these compare the text.
Subscribers::Subscribers(const ServiceProcess& service, const HostedSession& session, std::size_t count,
                         std::uint64_t textBytes) {
  const auto check = count == 1 ? StreamReceiver::Check::decoded : StreamReceiver::Check::encodedText;
  for (std::size_t index = 0; index < count; ++index) {
    members_.push_back(std::make_unique<Subscriber>(service, session, textBytes, check));
  }
}

template <class Done>
void Subscribers::receiveUntil(Done done) {
  std::vector<pollfd> entries;
  while (true) {
    entries.clear();
    for (const auto& member : members_) {
      if (!done(member->receiver())) entries.push_back({member->descriptor(), POLLIN, 0});
    }
    if (entries.empty()) return;
    awaitReady(entries);
    for (const pollfd& entry : entries) {
      if (entry.revents == 0) continue;
      for (const auto& member : members_) {
        if (member->descriptor() == entry.fd) member->receive();
      }
    }
  }
}

void Subscribers::receiveUntilReady() {
  receiveUntil([](const StreamReceiver& receiver) { return receiver.ready(); });
}

void Subscribers::receiveUntilComplete() {
  receiveUntil([](const StreamReceiver& receiver) { return receiver.complete(); });
}

std::uint64_t Subscribers::lostBytes() const {
  std::uint64_t lost = 0;
  for (const auto& member : members_) lost += member->receiver().lostBytes();
  return lost;
}

int Subscribers::cutOffs() const {
  int count = 0;
  for (const auto& member : members_) count += member->cutOffs();
  return count;
}

}  // namespace velotide::bench
