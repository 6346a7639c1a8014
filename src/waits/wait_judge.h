#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "events/event_log.h"
#include "waits/wait_records.h"

namespace velotide {

// The active attention items in their order, borrowed until the next change of the store.
using TerminalAttentionItems = std::function<std::span<const TerminalAttentionItem* const>()>;

// What the judgement of a wait rests on.
struct WaitSources {
  TerminalSessionEventStore& events;
  // Nothing when no session has that identifier.
  std::function<std::optional<TerminalWaitTargetSnapshot>(const Uuid& tabID)> targetSnapshot;
  TerminalAttentionItems attentionItems;
  // Whether agents and attention are followed at all.
  std::function<bool()> monitoringEnabled;
};

// Judges waits at one moment, during which nothing changes: what it has asked of the sources for one wait
// holds for the next, so that many waits cost little more than one. All waits that it is given and that name
// a session name the same one.
class WaitJudge {
 public:
  // Events up to `judged` are known to match none of the waits.
  WaitJudge(const WaitSources& sources, std::uint64_t judged) : sources_(sources), judged_(judged) {}

  // The end of the wait, or nothing while it has to go on.
  std::optional<TerminalWaitResult> judge(const std::string& id, const TerminalWaitSpec& spec);

 private:
  // Most events after its cursor at which one wait looks.
  static constexpr std::uint64_t readLimit = 1024;

  TerminalWaitResult end(const std::string& id, TerminalWaitOutcome outcome) const;
  const std::optional<TerminalWaitTargetSnapshot>& target(const Uuid& tabID);
  std::uint64_t newestItem(const Uuid& tabID);

  std::optional<TerminalWaitResult> judgeCommand(const std::string& id, const TerminalWaitSpec& spec);
  std::optional<TerminalWaitResult> judgeAgent(const std::string& id, const TerminalWaitSpec& spec);
  std::optional<TerminalWaitResult> judgeOutput(const std::string& id, const TerminalWaitSpec& spec);
  std::optional<TerminalWaitResult> judgeLog(const std::string& id, const TerminalWaitSpec& spec);
  std::optional<TerminalWaitResult> judgeEvents(const std::string& id, const TerminalWaitSpec& spec);
  std::optional<TerminalWaitResult> judgeAttention(const std::string& id, const TerminalWaitSpec& spec);

  const WaitSources& sources_;
  const std::uint64_t judged_;
  // Asked for on first use; the outer optional says whether it has been.
  std::optional<std::optional<TerminalWaitTargetSnapshot>> target_;
  std::optional<std::uint64_t> newestItem_;
};

}  // namespace velotide
