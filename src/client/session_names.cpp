#include "client/session_names.h"

#include "client/trouble.h"

namespace velotide::client {

namespace {

constexpr std::size_t shortLength = 8;

std::string listed(const std::vector<const TerminalRuntimeSessionInfo*>& sessions) {
  std::string text;
  for (const TerminalRuntimeSessionInfo* session : sessions) text += " " + session->id.text();
  return text;
}

}  // namespace

std::string shortName(const Uuid& id) { return id.text().substr(0, shortLength); }

const TerminalRuntimeSessionInfo& resolveName(std::string_view name,
                                              const std::vector<TerminalRuntimeSessionInfo>& sessions) {
  const std::vector<const TerminalRuntimeSessionInfo*> found = namedBy(name, sessions);
  if (found.empty())
    throw Trouble("No session is named " + (name.empty() ? "\"\"" : std::string(name)) +
                  ". `velotide ls` shows those there are.");
  if (found.size() > 1)
    throw Trouble(std::string(name) + " fits several sessions:" + listed(found) + ". Give more of the name.");
  return *found.front();
}

TerminalRuntimeSessionInfo findSession(Service& service, std::string_view name) {
  return resolveName(name, service.sessions());
}

TerminalRuntimeSessionInfo findRunningSession(Service& service) {
  const std::vector<TerminalRuntimeSessionInfo> sessions = service.sessions();
  std::vector<const TerminalRuntimeSessionInfo*> running;
  for (const TerminalRuntimeSessionInfo& session : sessions) {
    if (session.running) running.push_back(&session);
  }
  if (running.empty()) throw Trouble("No session is running. Start one: velotide new");
  if (running.size() > 1) throw Trouble("Several sessions are running:" + listed(running) + ". Name one.");
  return *running.front();
}

}  // namespace velotide::client
