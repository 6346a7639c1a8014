#include "client/attach.h"
#include "client/commands.h"
#include "client/launch.h"
#include "client/local_terminal.h"
#include "client/printing.h"
#include "client/run_plain.h"
#include "client/session_names.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

LaunchWish wishFor(const Service& service, const StartOptions& options) {
  const WindowSize size = LocalTerminal::size();
  LaunchWish wish;
  wish.sessionID = Uuid::random();
  wish.command = options.command;
  wish.isLogin = options.isLogin;
  wish.loadsShellIntegration = !options.leavesShellAlone;
  wish.directory = options.directory;
  wish.root = service.root().path();
  wish.columns = size.columns;
  wish.rows = size.rows;
  return wish;
}

TerminalRuntimeSessionInfo started(Service& service, TerminalRuntimeRequest request) {
  const TerminalRuntimeResponse response = service.ask(std::move(request));
  if (response.ok && response.session) return *response.session;
  if (response.error == "resource_limit")
    throw Trouble("The service holds all the sessions it can (64). Close some: velotide close --exited");
  if (response.error == "unavailable") throw Trouble("The service is just stopping. Try again.");
  throw Trouble(explain(response.error.value_or("")));
}

TerminalRuntimeSessionInfo create(Service& service, const LaunchWish& wish) {
  TerminalRuntimeRequest request = TerminalRuntimeRequest::make(TerminalRuntimeAction::create);
  request.launch = composeLaunch(wish, service.notices());
  request.sessionID = wish.sessionID;
  service.ensureRuns();
  return started(service, std::move(request));
}

int showStarted(Service& service, const TerminalRuntimeSessionInfo& session, const StartOptions& options) {
  if (options.isDetached || !LocalTerminal::isPresent()) {
    if (options.asJson)
      printJson(session);
    else
      print(session.id.text() + "\n");
    return ExitStatus::success;
  }
  const int status = attach(service, session, {DetachKey::named(options.detachKey), true, true});
  if (options.removesAtEnd) {
    const std::optional<TerminalRuntimeSessionInfo> left = service.session(session.id);
    if (left && !left->running) closeSession(service, session.id);
  }
  return status;
}

}  // namespace

int startSession(Service& service, const StartOptions& options) {
  DetachKey::named(options.detachKey);
  return showStarted(service, create(service, wishFor(service, options)), options);
}

int attachSession(Service& service, const std::optional<std::string>& name, const std::string& detachKey) {
  const DetachKey key = DetachKey::named(detachKey);
  if (!LocalTerminal::isPresent())
    throw Trouble("Attaching needs a terminal. To follow the output without one: velotide read --follow " +
                  name.value_or("SESSION"));
  const TerminalRuntimeSessionInfo session = name ? findSession(service, *name) : findRunningSession(service);
  refuseOwnSession(session.id);
  return attach(service, session, {key, false, true});
}

int runProgram(Service& service, const StartOptions& options) {
  const bool isTerminal = LocalTerminal::isPresent();
  LaunchWish wish = wishFor(service, options);
  if (!isTerminal)
    wish.streams = inputAllowsStopping() ? LaunchWish::Streams::plainStoppable : LaunchWish::Streams::plain;
  const TerminalRuntimeSessionInfo session = create(service, wish);
  // Also when something goes wrong: nobody else knows of the session.
  struct Closing {
    Service& service;
    const Uuid& id;
    ~Closing() {
      try {
        closeSession(service, id);
      } catch (const Trouble&) {
        // The service is gone, and the session with it.
      }
    }
  } closing{service, session.id};
  return isTerminal ? attach(service, session, {DetachKey::named("none"), true, false})
                    : runPlain(service, session);
}

int restartSession(Service& service, const std::string& name, const StartOptions& options) {
  DetachKey::named(options.detachKey);
  const TerminalRuntimeSessionInfo before = findSession(service, name);
  if (before.running)
    throw Trouble("The session is still running. End its program, or close it and start another.");
  LaunchWish wish = wishFor(service, options);
  wish.sessionID = before.id;
  if (wish.directory.empty()) wish.directory = before.directory;
  if (!LocalTerminal::isPresent()) {
    wish.columns = before.columns;
    wish.rows = before.rows;
  }
  TerminalRuntimeRequest request = Service::about(before, TerminalRuntimeAction::restartExited);
  request.launch = composeLaunch(wish, service.notices());
  return showStarted(service, started(service, std::move(request)), options);
}

}  // namespace velotide::client
