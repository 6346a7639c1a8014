#pragma once

#include <map>
#include <set>
#include <string>

#include "service/runtime_server.h"

namespace velotide {

// Sees everything that a service publishes and looks at all that it holds: what it says must fit together,
// and nothing it keeps may grow past its bound. Compiled with a view of private members.
class ServiceWitness {
 public:
  // The server must outlive it.
  explicit ServiceWitness(RuntimeServer& server);
  ~ServiceWitness();
  ServiceWitness(const ServiceWitness&) = delete;
  ServiceWitness& operator=(const ServiceWitness&) = delete;

  // After each turn.
  void checkBounds();
  // Once nothing moves any more: what sessions hold is all that their programs printed.
  void checkJournals() const;

 private:
  void observe(const TerminalSessionEvent& event);
  void observeCommand(const TerminalSessionEvent& event);
  void observeAttention(const TerminalSessionEvent& event);
  void checkSession(const RuntimeSession& session);

  RuntimeServer& server_;
  Uuid observation_;
  std::uint64_t sequence_ = 0;
  std::set<Uuid> registered_;
  std::set<Uuid> startedCommands_;
  std::set<Uuid> finishedCommands_;
  struct Noticed {
    std::int64_t version;
    bool isResolved;
  };
  std::map<Uuid, Noticed> items_;
  // By generation.
  std::map<Uuid, std::uint64_t> revisions_;
  std::map<Uuid, std::int64_t> outputRevisions_;
};

}  // namespace velotide
