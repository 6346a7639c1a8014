#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

#include "client/event_stream.h"
#include "client/mailbox_client.h"
#include "client/printing.h"
#include "client/session_names.h"
#include "client/signal_pipe.h"
#include "client/trouble.h"
#include "client/wait_commands.h"

namespace velotide::client {

namespace {

// What one wait at the service lasts at most; longer ones are made of several.
constexpr Seconds longestWait = 60;
// The log may run over while a wait is pending. The next one begins so many events before its end: among them
// is the one that ended it, and all are newer than the cursor that it had.
constexpr std::uint64_t lookBack = 64;

bool parseNumber(std::string_view text, std::int64_t& number) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return !text.empty() && result.ec == std::errc() && result.ptr == text.data() + text.size();
}

TerminalEventCursor parseCursor(const std::string& text) {
  const std::optional<TerminalEventCursor> cursor = parseEventCursor(text);
  if (!cursor)
    throw Trouble("--after takes a position as --show-cursor prints it: EPOCH:NUMBER, for --output NUMBER.",
                  ExitStatus::usage);
  return *cursor;
}

// What to wait for, from the options and from how things stand.
class WantedWait {
 public:
  WantedWait(Service& service, const WaitOptions& options) : options_(options) {
    choose();
    if (options.event && !options.session && !options.after.empty()) {
      spec.after = parseCursor(options.after);
      return;
    }
    const TerminalRuntimeResponse state =
        service.call(TerminalRuntimeRequest::make(TerminalRuntimeAction::list));
    if (state.eventHead) spec.after = *state.eventHead;
    if (!options.after.empty() && !options.output) spec.after = parseCursor(options.after);
    if (options.event && !options.session) return;
    lookAt(state.sessions.value_or(std::vector<TerminalRuntimeSessionInfo>()));
  }

  TerminalWaitSpec spec;
  // Whether the session was closed before there was anything to wait for.
  bool isGone = false;

 private:
  void choose() {
    const int chosen = !options_.command.empty() + options_.lastCommand + !options_.activity.empty() +
                       options_.attention + options_.output + options_.event;
    if (chosen != 1)
      throw Trouble(
          "Say what to wait for: one of --command, --last-command, --agent, --attention, --output, --event.",
          ExitStatus::usage);
    if (!options_.session && !options_.event) throw Trouble("Name a session.", ExitStatus::usage);
    if (options_.timeout && !(*options_.timeout >= 0))
      throw Trouble("--timeout takes seconds, 0 or more.", ExitStatus::usage);
  }

  void lookAt(const std::vector<TerminalRuntimeSessionInfo>& sessions) {
    const std::optional<Uuid> whole = Uuid::parse(*options_.session);
    isGone = whole && std::none_of(sessions.begin(), sessions.end(),
                                   [&](const auto& session) { return session.id == *whole; });
    if (isGone) {
      spec.tabID = whole;
      return;
    }
    const TerminalRuntimeSessionInfo& session = resolveName(*options_.session, sessions);
    spec.tabID = session.id;
    if (!options_.command.empty() || options_.lastCommand) awaitCommand(session);
    if (!options_.activity.empty()) awaitAgent(session);
    if (options_.output) awaitOutput(session);
    if (options_.attention) spec.condition = TerminalWaitCondition::attention;
  }

  void awaitCommand(const TerminalRuntimeSessionInfo& session) {
    spec.condition = TerminalWaitCondition::commandFinished;
    const auto commands = session.commands.value_or(std::vector<TerminalRuntimeCommandInfo>());
    if (!options_.lastCommand) {
      spec.commandID = Uuid::parse(options_.command);
      if (!spec.commandID) spec.commandID = findCommand(commands);
    } else if (!commands.empty()) {
      spec.commandID = commands.back().id;
    } else {
      throw Trouble("The session's shell has told of no command yet. `velotide new` starts shells that do.");
    }
  }

  Uuid findCommand(const std::vector<TerminalRuntimeCommandInfo>& commands) const {
    const std::vector<const TerminalRuntimeCommandInfo*> found = namedBy(options_.command, commands);
    if (found.size() != 1)
      throw Trouble((found.empty() ? "No" : "More than one") + std::string(" recent command is named ") +
                        options_.command + ". `velotide commands` shows them.",
                    ExitStatus::usage);
    return found.front()->id;
  }

  void awaitAgent(const TerminalRuntimeSessionInfo& session) {
    spec.condition = TerminalWaitCondition::agentState;
    spec.activity = fromRawWord<TerminalAgentActivity>(options_.activity);
    if (!spec.activity)
      throw Trouble("An agent's activity is unknown, working, idle, blocked or exited.", ExitStatus::usage);
    if (!session.agent) throw Trouble("No agent is known in the session. `velotide show` tells once one is.");
    spec.instanceID = session.agent->instanceID;
    spec.runID = session.agent->runID;
  }

  void awaitOutput(const TerminalRuntimeSessionInfo& session) {
    spec.condition = TerminalWaitCondition::outputChanged;
    std::int64_t revision = session.outputRevision.value_or(0);
    if (!options_.after.empty() && (!parseNumber(options_.after, revision) || revision < 0))
      throw Trouble("With --output, --after takes the number that --show-cursor prints.", ExitStatus::usage);
    spec.revision = revision;
  }

  const WaitOptions& options_;
};

// A signal came before the end of a wait.
struct Interrupted {
  int signal;
};

// One wait of the person's, made of as many of the service's as it takes.
class Waiting {
 public:
  // A cursor that `isGiven` by the person is an error when the log no longer reaches back to it.
  Waiting(const Service& service, const TerminalWaitSpec& spec, std::optional<Seconds> timeout, bool isGiven)
      : notices_(service.notices()),
        mailbox_(service.root()),
        spec_(spec),
        begin_(now()),
        timeout_(timeout),
        isGiven_(isGiven) {}

  // Throws Interrupted.
  TerminalWaitResult run() {
    for (bool isRenewed = isGiven_;; isRenewed = true) {
      begin();
      if (isRenewed && comesAndGoes()) {
        if (std::optional<TerminalWaitResult> missed = findMissed()) {
          mailbox_.cancelWait(id_, owner_);
          return *missed;
        }
      }
      const TerminalWaitResult result = await();
      if (!goesOn(result)) return result;
    }
  }

 private:
  Seconds left() const {
    if (!timeout_) return std::numeric_limits<Seconds>::infinity();
    return std::max(*timeout_ - (now() - begin_), 0.0);
  }

  void begin() {
    // A given cursor is judged at once: if it expired, then before this wait and not during it.
    spec_.timeoutSeconds = isGiven_ ? 0 : std::min(left(), longestWait);
    RuntimeNativeRequest request;
    request.action = rawWord(RuntimeNativeAction::waitSession);
    request.controlID = owner_;
    request.waitSpec = spec_;
    id_ = mailbox_.send(std::move(request));
  }

  TerminalWaitResult await() {
    const Uptime deadline = now() + spec_.timeoutSeconds + MailboxClient::answerDeadline;
    const std::optional<MailboxAnswer> answer = mailbox_.await(id_, deadline, signals_.descriptor());
    if (!answer) giveUp();
    if (answer->record.waitResult) return *answer->record.waitResult;
    const std::string word = answer->record.error.value_or("");
    throw Trouble(word == "capacityExceeded"
                      ? "The service holds all the waits it takes (128). Try again later."
                      : explain(word));
  }

  // Whether it takes another wait, which then begins where this one has left off.
  bool goesOn(const TerminalWaitResult& result) {
    const bool wasGiven = std::exchange(isGiven_, false);
    spec_.after = result.cursor;
    if (result.outcome != TerminalWaitOutcome::cursorExpired || wasGiven)
      return result.outcome == TerminalWaitOutcome::timeout && left() > 0;
    spec_.after.sequence -= std::min(lookBack, spec_.after.sequence);
    return true;
  }

  // A signal, or the end of patience, came before an answer.
  [[noreturn]] void giveUp() {
    const bool isPending = !mailbox_.withdraw(id_);
    const std::vector<int> came = signals_.take();
    if (isPending) mailbox_.cancelWait(id_, owner_);
    if (came.empty()) MailboxClient::failUnanswered();
    throw Interrupted{came.front()};
  }

  RuntimeNativeResponse ask(RuntimeNativeRequest request) {
    const std::string id = mailbox_.send(std::move(request));
    const Uptime deadline = now() + MailboxClient::answerDeadline;
    std::optional<MailboxAnswer> answer = mailbox_.await(id, deadline, signals_.descriptor());
    if (answer) return std::move(answer->record);
    mailbox_.withdraw(id);
    giveUp();
  }

  // Present states are judged when a wait begins. What came and went before it is only in the log.
  bool comesAndGoes() const {
    return spec_.condition == TerminalWaitCondition::agentState ||
           spec_.condition == TerminalWaitCondition::attention;
  }

  // Reads what was logged before the wait began; what comes later it sees by itself.
  std::optional<TerminalWaitResult> findMissed() {
    if (!mailbox_.awaitTaken(id_, now() + MailboxClient::answerDeadline, signals_.descriptor())) giveUp();
    RuntimeNativeRequest request;
    request.action = rawWord(RuntimeNativeAction::readSessionEvents);
    request.eventCursor = spec_.after;
    for (bool hasMore = true; hasMore;) {
      const RuntimeNativeResponse answer = ask(request);
      if (answer.error == rawWord(TerminalEventReadError::cursorExpired)) return findStanding();
      // The wait itself tells what else is wrong with the cursor.
      if (!answer.eventBatch) return std::nullopt;
      for (const TerminalSessionEvent& event : answer.eventBatch->events) {
        if (event.tabID == spec_.tabID && isMatch(event))
          return matchOf(event.cursor.sequence, event.agent, event.attention);
      }
      hasMore = answer.eventBatch->hasMore;
      request.eventCursor = answer.eventBatch->nextCursor;
    }
    return std::nullopt;
  }

  // The log no longer tells all that happened since the cursor. Items that stand tell when they were raised.
  std::optional<TerminalWaitResult> findStanding() {
    if (spec_.condition == TerminalWaitCondition::attention) {
      RuntimeNativeRequest request;
      request.action = rawWord(RuntimeNativeAction::listAttention);
      request.tab = spec_.tabID->text();
      const RuntimeNativeResponse answer = ask(std::move(request));
      for (const auto& item : answer.attention.value_or(std::vector<TerminalAttentionItem>())) {
        if (item.createdSequence > spec_.after.sequence)
          return matchOf(item.createdSequence, std::nullopt, item);
      }
    }
    notices_.note("more has happened since than the service keeps: what came and went may be missed");
    return std::nullopt;
  }

  bool isMatch(const TerminalSessionEvent& event) const {
    if (spec_.condition == TerminalWaitCondition::attention)
      return event.kind == TerminalSessionEventKind::attentionCreated && event.attention;
    return event.kind == TerminalSessionEventKind::agentChanged && event.agent &&
           event.agent->instanceID == spec_.instanceID && event.agent->runID == spec_.runID &&
           event.agent->activity == spec_.activity;
  }

  TerminalWaitResult matchOf(std::uint64_t sequence, const std::optional<TerminalAgentSnapshot>& agent,
                             const std::optional<TerminalAttentionItem>& attention) const {
    TerminalWaitResult result{id_, TerminalWaitOutcome::matched, {spec_.after.appEpoch, sequence}};
    result.agent = agent;
    result.attention = attention;
    return result;
  }

  const Notices& notices_;
  MailboxClient mailbox_;
  SignalPipe signals_{{SIGINT, SIGTERM, SIGHUP}};
  const std::string owner_ = Uuid::random().text();
  TerminalWaitSpec spec_;
  const Uptime begin_;
  const std::optional<Seconds> timeout_;
  bool isGiven_;
  // Of the wait at the service.
  std::string id_;
};

std::string wordOf(const TerminalWaitResult& result) {
  if (result.commandState) return std::string(rawWord(*result.commandState));
  if (result.agent) return std::string(rawWord(result.agent->activity));
  if (result.event) return std::string(rawWord(result.event->kind));
  if (result.attention) return std::string(rawWord(result.attention->kind));
  return std::to_string(result.revision.value_or(0));
}

// The exit status, and what is said about an outcome that is no match.
int conclude(const Notices& notices, TerminalWaitOutcome outcome) {
  switch (outcome) {
    case TerminalWaitOutcome::matched:
      return ExitStatus::success;
    case TerminalWaitOutcome::timeout:
      notices.note("timed out");
      return WaitStatus::timeout;
    case TerminalWaitOutcome::targetClosed:
      notices.error("the session is closed");
      return WaitStatus::targetGone;
    case TerminalWaitOutcome::targetReplaced:
      notices.error("the session no longer knows that command, or has another agent now");
      return WaitStatus::targetGone;
    case TerminalWaitOutcome::appExited:
      notices.error("the service was stopped");
      return ExitStatus::notRunning;
    case TerminalWaitOutcome::cancelled:
      notices.error("somebody cancelled the wait");
      return ExitStatus::failure;
    case TerminalWaitOutcome::appRestarted:
      notices.error("the service was restarted since that position: leave --after out");
      return ExitStatus::failure;
    case TerminalWaitOutcome::cursorExpired:
      notices.error("what happened after that position is no longer held: leave --after out");
      return ExitStatus::failure;
    case TerminalWaitOutcome::futureCursor:
      notices.error("that position lies in the future: leave --after out");
      return ExitStatus::failure;
    case TerminalWaitOutcome::disabled:
      notices.error("the service does not watch agents");
      return ExitStatus::failure;
  }
  return ExitStatus::failure;
}

}  // namespace

int waitForSession(Service& service, const WaitOptions& options) {
  const WantedWait wanted(service, options);
  TerminalWaitResult result{"", TerminalWaitOutcome::targetClosed, wanted.spec.after};
  try {
    const bool isGiven = !options.after.empty() && !options.output;
    if (!wanted.isGone) result = Waiting(service, wanted.spec, options.timeout, isGiven).run();
  } catch (const Interrupted& interrupted) {
    return ExitStatus::signalBase + interrupted.signal;
  }
  if (options.asJson)
    printJson(result);
  else if (result.outcome == TerminalWaitOutcome::matched)
    print(wordOf(result) + "\n");
  if (options.showsCursor) {
    const std::int64_t revision = result.revision.value_or(wanted.spec.revision.value_or(0));
    service.notices().error("cursor " +
                            (options.output ? std::to_string(revision) : cursorText(result.cursor)));
  }
  return conclude(service.notices(), result.outcome);
}

}  // namespace velotide::client
