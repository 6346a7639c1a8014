#include "client/agent_text.h"
#include "client/cell_text.h"
#include "client/commands.h"
#include "client/printing.h"
#include "client/session_names.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

std::string stateOf(const TerminalRuntimeSessionInfo& session) {
  if (session.running) return "running";
  return session.exitStatus.value_or(-1) < 0 ? "exited" : "exited " + std::to_string(*session.exitStatus);
}

std::string agentOf(const TerminalRuntimeSessionInfo& session) {
  return session.agent ? describeAgent(*session.agent) : "-";
}

std::string sizeOf(const TerminalRuntimeSessionInfo& session) {
  return std::to_string(session.columns) + "x" + std::to_string(session.rows);
}

std::string describe(const TerminalRuntimeCommandInfo& command) {
  std::string text = localTime(command.startedAt) + "  " + std::string(rawWord(command.state));
  if (command.exitCode) text += " " + std::to_string(*command.exitCode);
  return text;
}

}  // namespace

int listSessions(Service& service, bool asJson, bool namesOnly) {
  std::vector<TerminalRuntimeSessionInfo> sessions;
  std::optional<Trouble> trouble;
  try {
    sessions = service.sessions();
  } catch (const Trouble& found) {
    if (found.status != ExitStatus::notRunning) throw;
    trouble = found;
  }
  if (asJson && sessions.empty()) print("[]\n");
  if (trouble) throw *trouble;
  std::vector<std::vector<std::string>> rows;
  for (const TerminalRuntimeSessionInfo& session : sessions) {
    if (asJson)
      printJson(session);
    else if (namesOnly)
      print(session.id.text() + "\n");
    else
      rows.push_back({shortName(session.id), stateOf(session), std::to_string(session.pid), sizeOf(session),
                      shownText(session.controlOwner.value_or("-")), agentOf(session),
                      shownText(session.directory)});
  }
  if (!asJson && !namesOnly)
    printTable({"SESSION", "STATE", "PID", "SIZE", "CONTROL", "AGENT", "DIRECTORY"}, rows);
  return 0;
}

int showSession(Service& service, const std::string& name, bool asJson) {
  const TerminalRuntimeSessionInfo session = findSession(service, name);
  if (asJson) {
    printJson(session);
    return 0;
  }
  std::vector<std::pair<std::string, std::string>> fields = {
      {"session", session.id.text()},
      {"state", stateOf(session)},
      {"pid", std::to_string(session.pid)},
      {"directory", shownText(session.directory)},
      {"size", sizeOf(session)},
      {"output", std::to_string(session.outputOffset) + " bytes"},
      {"position", session.generation.text() + ":" + std::to_string(session.outputOffset)},
      {"agent", agentOf(session)},
      {"control", "free"},
  };
  if (session.controlOwner) {
    fields.back().second = shownText(*session.controlOwner);
    if (session.controlExpiresAt) fields.back().second += " until " + localTime(*session.controlExpiresAt);
  }
  for (const auto& command : session.commands.value_or(std::vector<TerminalRuntimeCommandInfo>()))
    fields.emplace_back("command", describe(command));
  printFields(fields);
  return 0;
}

}  // namespace velotide::client
