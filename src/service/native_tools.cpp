#include "service/native_tools.h"

namespace velotide {

NativeTools::NativeTools(const std::string& root, TerminalSessionEventStore& events,
                         TerminalAttentionStore& attention, SessionTable& sessions)
    : sessions_(sessions),
      bridge_(root, events),
      waits_({events, [this](const Uuid& tabID) { return target(tabID); },
              [&attention] { return attention.activeView(); }, [] { return true; }}) {
  bridge_.setWaits(waits_);
  bridge_.setAttentionStore(attention);
}

bool NativeTools::contains(const Uuid& tabID) const { return sessions_.contains(tabID); }

bool NativeTools::isRunning(const Uuid& tabID) const { return sessions_.at(tabID)->running(); }

const std::optional<TerminalAgentSnapshot>& NativeTools::agent(const Uuid& tabID) const {
  return sessions_.at(tabID)->agentMonitor().snapshot();
}

bool NativeTools::authorizes(const Uuid& tabID, const std::optional<std::string>& token) const {
  return sessions_.at(tabID)->nativeAgentContext().authorizes(token);
}

void NativeTools::updateAgent(const Uuid& tabID, const std::function<void(TerminalAgentMonitor&)>& change) {
  sessions_.at(tabID)->updateAgent(change);
}

std::optional<TerminalWaitTargetSnapshot> NativeTools::target(const Uuid& tabID) const {
  const auto found = sessions_.find(tabID);
  if (found == sessions_.end()) return std::nullopt;
  const RuntimeSession& session = *found->second;
  const auto& agent = session.agentMonitor().snapshot();
  return TerminalWaitTargetSnapshot{
      agent ? &*agent : nullptr, session.outputRevision(),
      [&session](const Uuid& commandID) -> std::optional<TerminalWaitCommandSnapshot> {
        const TerminalRuntimeCommandInfo* command = session.commandLedger().find(commandID);
        if (command == nullptr) return std::nullopt;
        return TerminalWaitCommandSnapshot{command->endedAt.has_value(), command->state};
      }};
}

}  // namespace velotide
