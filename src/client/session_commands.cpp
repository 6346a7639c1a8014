#include "client/commands.h"
#include "client/local_terminal.h"
#include "client/session_names.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

constexpr int closeAttempts = 8;

std::vector<Uuid> chosen(Service& service, const CloseOptions& options) {
  const std::vector<TerminalRuntimeSessionInfo> sessions = service.sessions();
  std::vector<Uuid> ids;
  for (const std::string& name : options.sessions) ids.push_back(resolveName(name, sessions).id);
  for (const TerminalRuntimeSessionInfo& session : sessions) {
    if (options.all || (options.allExited && !session.running)) ids.push_back(session.id);
  }
  return ids;
}

}  // namespace

int resizeSession(Service& service, const std::string& name, std::int64_t columns, std::int64_t rows) {
  const std::optional<WindowSize> size =
      columns > 0 ? WindowSize{columns, rows} : LocalTerminal::sizeIfPresent();
  if (!size)
    throw Trouble("There is no terminal here to take the size of. Give COLUMNS and ROWS.", ExitStatus::usage);
  const TerminalRuntimeSessionInfo session = findSession(service, name);
  TerminalRuntimeRequest request = Service::about(session, TerminalRuntimeAction::resize);
  request.columns = size->columns;
  request.rows = size->rows;
  service.call(request);
  return ExitStatus::success;
}

void closeSession(Service& service, const Uuid& id) {
  for (int attempt = 1; const std::optional<TerminalRuntimeSessionInfo> session = service.session(id);
       ++attempt) {
    const TerminalRuntimeResponse response =
        service.ask(Service::about(*session, TerminalRuntimeAction::close));
    if (response.ok) return;
    const bool isPassing = response.error == "control_changed" || response.error == "generation_changed" ||
                           response.error == "unavailable";
    if (!isPassing || attempt == closeAttempts) throw Trouble(explain(response.error.value_or("")));
  }
}

int closeSessions(Service& service, const CloseOptions& options) {
  if (options.sessions.empty() && !options.all && !options.allExited)
    throw Trouble("Name the sessions to close, or give --exited or --all.", ExitStatus::usage);
  for (const Uuid& id : chosen(service, options)) closeSession(service, id);
  return ExitStatus::success;
}

}  // namespace velotide::client
