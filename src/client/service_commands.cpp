#include <algorithm>

#include "client/cell_text.h"
#include "client/commands.h"
#include "client/printing.h"
#include "client/session_names.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

constexpr Seconds endDeadline = 10;

// What `status --json` prints.
struct StatusRecord {
  std::string clientVersion = std::string(AppVersion::value);
  std::string root;
  bool isRunning = false;
  std::optional<std::string> version;
  std::optional<Uuid> serviceEpoch;
  std::optional<std::int64_t> sessions;
  std::optional<std::int64_t> runningSessions;
  std::optional<std::int64_t> pendingWaits;
  std::optional<std::vector<TerminalRuntimeDisconnectDiagnostic>> disconnects;
  std::optional<std::vector<std::string>> features;

  static void fields(auto& self, auto& visit) {
    visit("clientVersion", self.clientVersion);
    visit("root", self.root);
    visit("isRunning", self.isRunning);
    visit("version", self.version);
    visit("serviceEpoch", self.serviceEpoch);
    visit("sessions", self.sessions);
    visit("runningSessions", self.runningSessions);
    visit("pendingWaits", self.pendingWaits);
    visit("disconnects", self.disconnects);
    visit("features", self.features);
  }
};

void fill(StatusRecord& status, Service& service) {
  const TerminalRuntimeResponse response =
      service.call(TerminalRuntimeRequest::make(TerminalRuntimeAction::diagnostics));
  const std::vector<TerminalRuntimeSessionInfo> sessions = service.sessions();
  status.isRunning = true;
  status.version = response.version;
  status.serviceEpoch = response.serviceEpoch;
  status.sessions = static_cast<std::int64_t>(sessions.size());
  status.runningSessions =
      std::count_if(sessions.begin(), sessions.end(), [](const auto& session) { return session.running; });
  status.pendingWaits = response.pendingWaits;
  status.disconnects = response.disconnects;
  status.features = response.features;
}

std::string describe(const TerminalRuntimeDisconnectDiagnostic& drop) {
  std::string text = shownText(drop.reason);
  if (drop.lastAction) text += " after " + std::string(rawWord(*drop.lastAction));
  if (drop.subscribed) text += ", subscribed";
  return text + ", " + std::to_string(drop.queuedBytes) + " bytes unsent";
}

void printStatus(const StatusRecord& status) {
  std::vector<std::pair<std::string, std::string>> fields = {{"client", status.clientVersion},
                                                             {"root", status.root}};
  if (status.isRunning) {
    fields.emplace_back("service", shownText(*status.version));
    fields.emplace_back("epoch", status.serviceEpoch->text());
    fields.emplace_back("sessions", std::to_string(*status.sessions) + ", " +
                                        std::to_string(*status.runningSessions) + " of them running");
    fields.emplace_back("waits", std::to_string(status.pendingWaits.value_or(0)));
    for (const auto& drop : status.disconnects.value_or(std::vector<TerminalRuntimeDisconnectDiagnostic>()))
      fields.emplace_back("dropped client", describe(drop));
  }
  printFields(fields);
}

}  // namespace

int showStatus(Service& service, bool asJson) {
  StatusRecord status;
  status.root = service.root().path();
  std::optional<Trouble> trouble;
  try {
    fill(status, service);
  } catch (const Trouble& found) {
    if (found.status != ExitStatus::notRunning) throw;
    trouble = found;
  }
  if (asJson)
    printJson(status);
  else
    printStatus(status);
  if (trouble) throw *trouble;
  return ExitStatus::success;
}

int stopService(Service& service, bool closesAll) {
  if (closesAll) closeSessions(service, {.sessions = {}, .allExited = false, .all = true});
  const TerminalRuntimeResponse response =
      service.ask(TerminalRuntimeRequest::make(TerminalRuntimeAction::shutdownIfEmpty));
  if (response.error == "control_owned") {
    std::string names;
    for (const TerminalRuntimeSessionInfo& session : service.sessions()) names += " " + shortName(session.id);
    throw Trouble("Sessions are still open:" + names + ". Close them, or stop with --close-all.");
  }
  if (!response.ok) throw Trouble(explain(response.error.value_or("")));
  if (!service.waitForEnd(endDeadline))
    throw Trouble("The service was told to stop and has not ended yet. See `velotide status`.");
  return ExitStatus::success;
}

}  // namespace velotide::client
