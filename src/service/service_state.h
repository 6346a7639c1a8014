#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/time.h"
#include "base/uuid.h"
#include "events/attention_store.h"
#include "events/event_log.h"
#include "protocol/runtime_response.h"
#include "service/native_tools.h"
#include "service/runtime_socket.h"
#include "terminal/runtime_session.h"

namespace velotide {

// The child of a closed session that had not ended yet: killed at its deadline, listed until it is reaped.
struct RetiredChild {
  static constexpr Seconds patience = 3;

  std::int32_t pid = 0;
  Uptime deadline;
};

// What the parts of the service share. Owned by the server; one thread uses it.
struct RuntimeServiceState {
  // Claims the root directory; throws what RuntimeSocket throws.
  RuntimeServiceState(const std::string& root, const Clock& theClock)
      : clock(theClock), socket(root), tools(nativeRoot(), events, attention, sessions) {}

  RuntimeSession* find(const Uuid& id) const {
    const auto found = sessions.find(id);
    return found == sessions.end() ? nullptr : found->second.get();
  }

  std::string nativeRoot() const { return socket.root() + "/native-tools"; }

  RuntimeSession::Surroundings surroundings() { return {nativeRoot(), events, attention, clock}; }

  const Clock& clock;
  // Identifies this run of the service to its clients.
  const Uuid epoch = Uuid::random();
  RuntimeSocket socket;
  TerminalSessionEventStore events{epoch};
  TerminalAttentionStore attention{events, clock};
  // At most maximumSessions together with the retired children.
  SessionTable sessions;
  NativeTools tools;
  std::vector<RetiredChild> retired;
  // The newest dropped clients, oldest first; at most maximumDisconnects.
  std::deque<TerminalRuntimeDisconnectDiagnostic> disconnects;
  bool shutdownRequested = false;

  static constexpr std::size_t maximumDisconnects = 32;
};

}  // namespace velotide
