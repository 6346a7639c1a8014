#include "bridge/native_bridge.h"

#include <unistd.h>

#include <utility>

#include "base/system_log.h"

namespace velotide {

RuntimeNativeBridge::RuntimeNativeBridge(const std::string& root, TerminalSessionEventStore& events)
    : mailbox_(root), targets_{events} {
  RuntimeReadOnlyMetadata metadata;
  metadata.appEpoch = events.appEpoch();
  metadata.pid = ::getpid();
  metadata.cursor = events.cursor();
  mailbox_.writeMetadata(metadata);
}

void RuntimeNativeBridge::process(BridgeSessions& sessions, Date now) {
  mailbox_.takeRequests([&](const RuntimeNativeRequest& request) { answer(request, sessions, now); });
  if (targets_.waits != nullptr) publishWaits(now);
  mailbox_.removeOldResponses(now);
}

void RuntimeNativeBridge::answer(const RuntimeNativeRequest& request, BridgeSessions& sessions, Date now) {
  const auto response = performRequest(request, targets_, sessions, now);
  // A tool whose response cannot be written gets none.
  if (response && !request.noResponse.value_or(false)) mailbox_.writeResponse(*response);
}

void RuntimeNativeBridge::publishWaits(Date now) {
  targets_.waits->expire(now);
  for (TerminalWaitResult& result : targets_.waits->drainCompletions()) {
    if (!mailbox_.writeResponse(waitResponse(std::move(result), targets_.events)))
      systemLog("Velotide runtime could not publish a bounded wait result");
  }
}

}  // namespace velotide
