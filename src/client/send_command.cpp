#include <errno.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "client/commands.h"
#include "client/key_names.h"
#include "client/session_input.h"
#include "client/session_journal.h"
#include "client/session_names.h"
#include "client/signal_pipe.h"
#include "client/terminal_modes.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

constexpr Seconds roomDeadline = 10;
// How long a program is given to show that it took what was typed.
constexpr Seconds reactionDeadline = 0.2;

[[noreturn]] void failOwned(const TerminalRuntimeSessionInfo& session) {
  throw Trouble(session.controlOwner.value_or("An agent") +
                " holds control of the session. Wait until it lets go, or type under its name with --as.");
}

// The lease of one agent, for as long as the object lives; kept if the agent had it before. Signals that end
// this process wait meanwhile, so that control is released.
class Lease {
 public:
  Lease(Service& service, TerminalRuntimeSessionInfo& session, std::string owner)
      : service_(service), owner_(std::move(owner)), isKept_(session.controlOwner == owner_) {
    TerminalRuntimeResponse response = change(session, TerminalRuntimeAction::acquireControl);
    if (response.error == "control_changed") {
      session = service_.session(session.id).value_or(session);
      response = change(session, TerminalRuntimeAction::acquireControl);
    }
    if (response.error == "control_owned") failOwned(session);
    if (response.error == "invalid_request")
      throw Trouble("An owner is named with 1 to 128 printable ASCII characters.", ExitStatus::usage);
    if (!response.ok || !response.session) throw Trouble(explain(response.error.value_or("")));
    session = *response.session;
    session_ = session;
  }
  ~Lease() {
    if (isKept_) return;
    try {
      change(session_, TerminalRuntimeAction::releaseControl);
    } catch (const Trouble&) {
      // It ends by itself after two minutes.
    }
  }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  // Where poll(2) sees that such a signal came, and what then ends the command.
  int signals() const { return signals_.descriptor(); }
  void obeySignals() {
    for (const int signal : signals_.take())
      throw Trouble("Stopped; what was sent before is typed.", ExitStatus::signalBase + signal);
  }

 private:
  TerminalRuntimeResponse change(const TerminalRuntimeSessionInfo& session, TerminalRuntimeAction action) {
    TerminalRuntimeRequest request = Service::about(session, action);
    request.owner = owner_;
    return service_.ask(std::move(request));
  }

  SignalPipe signals_{{SIGINT, SIGTERM, SIGHUP, SIGQUIT}};
  Service& service_;
  std::string owner_;
  bool isKept_;
  TerminalRuntimeSessionInfo session_;
};

// Sends all that is queued, in order.
void deliver(Service& service, SessionInput& input, std::optional<Lease>& lease) {
  Patience patience(service.notices(), "the program to take its input", roomDeadline);
  while (const std::optional<TerminalRuntimeRequest> request = input.next()) {
    if (lease) lease->obeySignals();
    switch (input.accept(service.ask(*request))) {
      case SessionInput::Outcome::fine:
        break;
      case SessionInput::Outcome::refusedByOwner:
        failOwned(service.session(input.session().id).value_or(input.session()));
      case SessionInput::Outcome::full:
        if (patience.isSpent())
          throw Trouble("The program does not read: " + std::to_string(input.size()) +
                        " bytes were not sent. Try again once it does.");
        patience.pause();
        break;
      case SessionInput::Outcome::ended:
        throw Trouble("The session's program has ended or was restarted. See `velotide ls`.");
    }
  }
}

// Gives the program time to take what was typed until it prints something: keys that arrive with what comes
// before them may count as one paste, and the end of control throws away what was not taken.
void awaitReaction(Service& service, SessionInput& input) {
  const std::optional<std::int64_t> before = input.session().outputRevision;
  Patience patience(service.notices(), "the program", reactionDeadline);
  while (!patience.isSpent()) {
    const TerminalRuntimeResponse state =
        service.ask(Service::about(input.session(), TerminalRuntimeAction::getAgentState));
    if (!state.ok || !state.session || state.session->outputRevision != before) return;
    patience.pause();
  }
}

void add(SessionInput& input, std::string_view text) { input.add(SessionInput::Kind::typed, bytesOf(text)); }

void sendStandardInput(Service& service, SessionInput& input, std::optional<Lease>& lease) {
  char bytes[65536];
  for (;;) {
    std::array<pollfd, 2> entries = {{{STDIN_FILENO, POLLIN, 0}, {lease ? lease->signals() : -1, POLLIN, 0}}};
    ::poll(entries.data(), entries.size(), -1);
    if (lease) lease->obeySignals();
    if (entries[0].revents == 0) continue;
    const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof bytes);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (count < 0)
      throw Trouble(std::string("Standard input cannot be read: ") + std::strerror(errno) +
                    ". Check what it is redirected from.");
    if (count == 0) return;
    add(input, {bytes, static_cast<std::size_t>(count)});
    deliver(service, input, lease);
  }
}

std::vector<std::string> keysOf(const SendOptions& options) {
  std::vector<std::string> keys;
  for (const std::string& name : options.keys) {
    const std::optional<std::string> key = bytesOfKey(name);
    if (!key)
      throw Trouble("No key is named " + name + ". `velotide send --help` lists them.", ExitStatus::usage);
    keys.push_back(*key);
  }
  if (options.pressesEnter) keys.emplace_back("\r");
  return keys;
}

// As far as it shows in the output that is held.
bool wantsApplicationKeys(Service& service, const TerminalRuntimeSessionInfo& session) {
  TerminalModes modes;
  readJournal(service, session, 0, [&](ByteView output, std::uint64_t) {
    modes.observe(textOf(output));
    return true;
  });
  return modes.hasApplicationKeys();
}

void addKeys(Service& service, SessionInput& input, const std::vector<std::string>& keys) {
  const auto hasForms = [](const std::string& key) { return applicationForm(key) != key; };
  const bool isApplication =
      std::ranges::any_of(keys, hasForms) && wantsApplicationKeys(service, input.session());
  for (const std::string& key : keys) add(input, isApplication ? applicationForm(key) : key);
}

}  // namespace

int sendInput(Service& service, const SendOptions& options) {
  const std::vector<std::string> keys = keysOf(options);
  TerminalRuntimeSessionInfo session = findSession(service, options.session);
  if (!session.running) throw Trouble("The session's program has ended. Start it anew: velotide restart");
  std::optional<Lease> lease;
  if (options.owner) lease.emplace(service, session, *options.owner);
  SessionInput input(session, options.owner);
  std::string text;
  for (const std::string& word : options.text) text += (text.empty() ? "" : " ") + word;
  if (options.text.empty() && keys.empty()) sendStandardInput(service, input, lease);
  add(input, text);
  deliver(service, input, lease);
  if (!text.empty() && (!keys.empty() || lease)) awaitReaction(service, input);
  addKeys(service, input, keys);
  deliver(service, input, lease);
  if (!keys.empty() && lease) awaitReaction(service, input);
  return ExitStatus::success;
}

}  // namespace velotide::client
