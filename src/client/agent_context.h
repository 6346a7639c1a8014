#pragma once

#include <optional>
#include <string>

#include "base/uuid.h"

namespace velotide::client {

// The hosted session that this program runs in, as the session's own descriptor tells it.
struct AgentContext {
  Uuid tabID;
  // Directory of the service, of its mailbox, and of what agents of its sessions keep.
  std::string serviceRoot;
  std::string mailbox;
  std::string records;
  // Proves to the mailbox that one runs in the session.
  std::string token;
  // Name of the descriptor, another one each time a program is started in the session; and whether the
  // descriptor of that name, here or of another session, is still there.
  std::string name;
  bool isLive(const std::string& name) const;

  // Nothing outside a hosted session, and when the session has ended. Throws Trouble when the descriptor is
  // not to be trusted.
  static std::optional<AgentContext> find();
};

}  // namespace velotide::client
