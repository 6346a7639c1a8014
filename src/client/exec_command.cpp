#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string_view>

#include "client/cell_text.h"
#include "client/command_watch.h"
#include "client/prompt_screen.h"
#include "client/session_control.h"
#include "client/session_link.h"
#include "client/session_names.h"
#include "client/shell_words.h"
#include "client/shown_output.h"
#include "client/signal_pipe.h"
#include "client/trouble.h"
#include "client/wait_commands.h"

namespace velotide::client {

namespace {

// How much of the past is looked at for the last prompt.
constexpr std::uint64_t lookBack = 32 * 1024;
// How long a shell that is starting, or about to show its prompt, is waited for.
constexpr Seconds promptDeadline = 10;
// How long nothing may come before what stands there counts as all.
constexpr Seconds settled = 0.3;
// How long a command that was told to end by Ctrl-C is waited for.
constexpr Seconds interruptDeadline = 5;
constexpr std::size_t maximumText = 32 * 1024;
constexpr std::string_view interruptKey = "\x03";
// Ctrl-E Ctrl-U, which discards the line in all line editors.
constexpr std::string_view discardKeys = "\x05\x15";

// The command cannot go on, for a reason that has a status of its own.
struct Refusal {
  int status;
  std::string message;
};

class Execution final : SessionLink::Observer {
 public:
  Execution(Service& service, const TerminalRuntimeSessionInfo& session, const ExecOptions& options)
      : service_(service),
        options_(options),
        link_(service, *this, session, lookFrom(session)),
        deadline_(options.timeout ? begin_ + *options.timeout
                                  : Uptime{std::numeric_limits<Seconds>::infinity()}) {}

  int run() {
    try {
      link_.open(signals_.descriptor());
      awaitPrompt();
      takeControl();
      typeCommand();
      awaitStart();
      return awaitEnd();
    } catch (const Refusal& refusal) {
      service_.notices().error(refusal.message);
      return refusal.status;
    }
  }

 private:
  static std::optional<TerminalRuntimeOutputCursor> lookFrom(const TerminalRuntimeSessionInfo& session) {
    if (session.outputOffset <= lookBack) return std::nullopt;
    return TerminalRuntimeOutputCursor{session.generation, session.outputOffset - lookBack};
  }

  void takeOutput(ByteView bytes, std::uint64_t offset) override {
    changedAt_ = now();
    end_ = offset + bytes.size();
    // What the command shows is no prompt.
    if (!output_ || output_->state() == CommandWatch::State::awaited) screen_.take(bytes, offset);
    if (output_) show(output_->take(bytes, offset));
  }
  void missOutput(std::uint64_t bytes) override { missed_ += output_ ? bytes : 0; }
  void loseConnection() override { service_.notices().note("connection lost: trying again"); }

  void awaitPrompt();
  bool isFree();
  bool isEditing();
  [[noreturn]] void refusePrompt();
  void takeControl();
  void typeCommand();
  void type(std::string_view text);
  void awaitStart();
  int awaitEnd();
  int conclude();
  void show(std::string_view output);
  bool isTold() const;
  bool isQuiet() const { return now() - changedAt_ >= settled; }
  void pump(Seconds limit);
  void takeSignals();

  Service& service_;
  const ExecOptions& options_;
  const Uptime begin_ = now();
  PromptScreen screen_;
  std::optional<CommandWatch> output_;
  // Before what is shown, so that no signal ends the process before the terminal is given back.
  SignalPipe signals_{{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGTSTP}};
  ShownOutput shown_{ShownOutput::Signals::owners};
  SessionLink link_;
  std::optional<SessionControl> control_;
  const Uptime deadline_;
  Uptime changedAt_ = now();
  // Where the output ends that was taken.
  std::uint64_t end_ = 0;
  std::uint64_t missed_ = 0;
  std::optional<Uptime> interruptedAt_;
};

// One turn: what came of the session, at most `limit` of waiting.
void Execution::pump(Seconds limit) {
  Uptime until = std::min(now() + limit, deadline_);
  if (const std::optional<Uptime> linkDeadline = link_.deadline()) until = std::min(until, *linkDeadline);
  const Seconds left = std::clamp(until - now(), 0.0, 60.0);
  std::array<pollfd, 2> entries = {{{signals_.descriptor(), POLLIN, 0}, link_.pollEntry()}};
  ::poll(entries.data(), entries.size(), static_cast<int>(std::ceil(left * 1000)));
  if (entries[0].revents != 0) takeSignals();
  link_.turn(entries[1].revents);
  if (link_.ending() && link_.ending()->kind == SessionEnding::Kind::serviceGone)
    throw Refusal{ExitStatus::ownFailure, "service gone"};
  if (control_) control_->renew();
}

void Execution::takeSignals() {
  for (const int signal : signals_.take()) {
    if (signal == SIGTSTP) {
      shown_.giveBack();
      ::kill(::getpid(), SIGSTOP);
      continue;
    }
    const int status = ExitStatus::signalBase + signal;
    if (signal != SIGINT) throw Refusal{status, "stopped waiting; what was typed goes on"};
    if (!output_ || interruptedAt_) throw Refusal{status, "interrupted"};
    interruptedAt_ = now();
    if (const auto word = control_->type(interruptKey, SessionControl::Expects::nothing))
      service_.notices().error("Ctrl-C was not taken: " + explain(*word));
  }
}

void Execution::show(std::string_view output) {
  try {
    shown_.print(bytesOf(output));
  } catch (const Trouble&) {
    // That nobody reads any more came as a signal, which has a status of its own.
    takeSignals();
    throw;
  }
}

void Execution::awaitPrompt() {
  Patience patience(service_.notices(), "the shell to show its prompt", promptDeadline);
  while (!isFree()) {
    if (link_.ending()) throw Refusal{ExecStatus::sessionEnded, "the session's program has ended"};
    const bool isStandstill = screen_.phase() == PromptScreen::Phase::running ||
                              (screen_.phase() == PromptScreen::Phase::prompt && isQuiet() && isEditing());
    if (isStandstill || patience.isSpent() || deadline_ <= now()) refusePrompt();
    // A line editor that switches the echo off sends nothing.
    constexpr Seconds look = 0.01;
    pump(screen_.phase() == PromptScreen::Phase::prompt ? look : settled);
  }
}

// Whether the shell waits for a command, and nothing has been typed.
bool Execution::isFree() {
  if (screen_.phase() != PromptScreen::Phase::prompt || end_ < link_.session().outputOffset) return false;
  if (options_.force ? !isQuiet() && !screen_.isEmptyPrompt() : !screen_.isEmptyPrompt()) return false;
  return isEditing();
}

// Whether the shell itself reads keys, which it does without echo.
bool Execution::isEditing() {
  const TerminalRuntimeResponse state =
      service_.ask(Service::about(link_.session(), TerminalRuntimeAction::inspectInput));
  return state.ok && state.echoEnabled == false && state.foregroundPID == link_.session().pid;
}

void Execution::refusePrompt() {
  const auto& commands = link_.session().commands;
  const bool isRunning = commands && !commands->empty() && !commands->back().endedAt;
  if (isRunning || screen_.phase() == PromptScreen::Phase::running)
    throw Refusal{ExecStatus::notAtPrompt,
                  "A command is running in the session. Wait for it: velotide wait " +
                      shortName(link_.session().id) + " --last-command"};
  if (screen_.phase() == PromptScreen::Phase::unknown && (!commands || commands->empty()))
    throw Refusal{ExecStatus::noIntegration,
                  "The session's shell does not report its commands. `velotide new` starts shells that do; a "
                  "program that is no shell takes `velotide send`."};
  throw Refusal{ExecStatus::notAtPrompt,
                "The session's prompt is not free: something seems to be typed there already, or the prompt "
                "ends in no known sign. Look with `velotide read`; --force discards what is typed."};
}

void Execution::takeControl() {
  const TerminalRuntimeSessionInfo judged = link_.session();
  if (judged.controlOwner)
    throw Refusal{ExecStatus::notAtPrompt,
                  shownText(*judged.controlOwner) + " holds control of the session. Wait until it lets go."};
  try {
    control_.emplace(service_, judged, "velotide-exec-" + std::to_string(::getpid()));
  } catch (const Trouble& trouble) {
    throw Refusal{ExecStatus::notAtPrompt, trouble.what()};
  }
  // Taking control counts two changes; more of them may be typing whose echo has not come yet.
  constexpr std::uint64_t ownChanges = 2;
  if (control_->session().revision <= judged.revision + ownChanges) return;
  changedAt_ = now();
  while (!isQuiet()) pump(settled);
  if (!isFree()) refusePrompt();
}

void Execution::typeCommand() {
  std::string text = shellText(options_.command, screen_.shell());
  const bool hasLines = text.find('\n') != std::string::npos;
  if (hasLines && options_.command.size() == 1) text = asOneCommand(text, screen_.shell());
  const bool takesTabs = screen_.takesPaste() && screen_.shell() != "fish";
  if (!takesTabs && text.find('\t') != std::string::npos)
    throw Refusal{ExitStatus::ownFailure, "A tab cannot be typed into this shell: it would complete words."};
  if (options_.force) type(discardKeys);
  const std::uint64_t before = end_;
  output_.emplace(before);
  if (!screen_.takesPaste()) return type(text + "\r");
  type("\x1b[200~" + text + "\x1b[201~");
  // Enter is pressed once the text stands there, so that it is not taken for a part of it.
  const Uptime echoed = now() + promptDeadline;
  while (end_ == before && now() < echoed && !link_.ending()) pump(settled);
  type("\r");
}

void Execution::type(std::string_view text) {
  const std::optional<std::string> word = control_->type(text, SessionControl::Expects::lineEditor);
  if (!word) return;
  const bool isElsewhere = *word == "input_echo_changed" || *word == "input_foreground_changed";
  throw Refusal{ExecStatus::notAtPrompt,
                isElsewhere ? "Something else reads the session's input now." : explain(*word)};
}

void Execution::awaitStart() {
  while (output_->state() == CommandWatch::State::awaited && !link_.ending()) {
    pump(settled);
    if (deadline_ <= now() || interruptedAt_) break;
    if (output_->state() != CommandWatch::State::awaited || !isQuiet() || !isEditing()) continue;
    // The shell reads on: it found nothing to run in the line, left it there, or waits for the rest of it.
    const bool isRejected = screen_.isEmptyPrompt();
    if (!isRejected) control_->type(interruptKey, SessionControl::Expects::lineEditor);
    throw Refusal{
        ExitStatus::ownFailure,
        isRejected
            ? "The shell ran nothing. See what it says: velotide read"
            : "The shell rejected the command, or it is not complete. See what it says: velotide read"};
  }
}

int Execution::awaitEnd() {
  while (!isTold() && !link_.ending()) {
    if (interruptedAt_ && now() - *interruptedAt_ > interruptDeadline) break;
    if (deadline_ <= now()) break;
    pump(interruptedAt_ ? settled : 10);
  }
  show(output_->rest());
  if (missed_ > 0)
    service_.notices().error(std::to_string(missed_) +
                             " bytes of output were lost: they came faster than they could be taken.");
  return conclude();
}

// Where output was lost, the end mark may be lost with it; the service has seen it.
bool Execution::isTold() const {
  if (output_->state() == CommandWatch::State::finished ||
      output_->state() == CommandWatch::State::superseded)
    return true;
  const auto& commands = link_.session().commands;
  return missed_ > 0 && commands && !commands->empty() && commands->back().endedAt &&
         end_ >= link_.session().outputOffset;
}

int Execution::conclude() {
  const bool hasFinished = output_->state() == CommandWatch::State::finished;
  if (interruptedAt_) {
    if (!hasFinished) service_.notices().error("interrupted, but the command goes on");
    return ExitStatus::signalBase + SIGINT;
  }
  if (hasFinished) return missed_ > 0 ? ExitStatus::ownFailure : output_->exitCode() & 0xFF;
  if (output_->state() == CommandWatch::State::superseded)
    throw Refusal{ExecStatus::superseded, "Another command began before the end of this one was told."};
  if (link_.ending()) throw Refusal{ExecStatus::sessionEnded, "The session ended meanwhile."};
  if (missed_ > 0 && isTold()) return ExitStatus::ownFailure;
  std::string message = "Timed out; the command goes on.";
  if (const auto& offset = output_->markerOffset()) {
    const Uuid id = TerminalRuntimeCommandInfo::identity(link_.session().generation, *offset);
    message +=
        " Wait for its end: velotide wait " + shortName(link_.session().id) + " --command " + id.text();
  }
  throw Refusal{ExecStatus::timeout, message};
}

void checkText(const ExecOptions& options) {
  if (options.command.empty())
    throw Trouble("Give the command behind `--`: velotide exec SESSION -- COMMAND.", ExitStatus::usage);
  const std::string text = shellText(options.command, {});
  if (text.find_first_not_of(" \t\n") == std::string::npos)
    throw Trouble("The command is empty.", ExitStatus::usage);
  const bool hasKeys = std::any_of(text.begin(), text.end(), [](unsigned char letter) {
    return letter == 0x7F || (letter < ' ' && letter != '\n' && letter != '\t');
  });
  if (hasKeys) throw Trouble("A command with control characters cannot be typed.", ExitStatus::usage);
  if (text.size() > maximumText)
    throw Trouble("The command is too long to be typed: at most 32 KiB.", ExitStatus::usage);
  if (options.timeout && !(*options.timeout >= 0))
    throw Trouble("--timeout takes seconds, 0 or more.", ExitStatus::usage);
}

}  // namespace

int executeInSession(Service& service, const ExecOptions& options) {
  checkText(options);
  const TerminalRuntimeSessionInfo session = findSession(service, options.session);
  if (!session.running) throw Trouble("The session's program has ended. Start it anew: velotide restart");
  return Execution(service, session, options).run();
}

}  // namespace velotide::client
