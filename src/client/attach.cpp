#include "client/attach.h"

#include <errno.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "client/attached_screen.h"
#include "client/launch.h"
#include "client/past_output.h"
#include "client/session_link.h"
#include "client/session_names.h"
#include "client/signal_pipe.h"
#include "client/trouble.h"
#include "client/typed_input.h"

namespace velotide::client {

namespace {

// Typed and not yet taken by the session; a larger paste waits in the terminal.
constexpr std::size_t maximumTyped = 1024 * 1024;
constexpr std::size_t readBytes = 16384;
// How long typing before the detach key may take to be accepted.
constexpr Seconds farewellDeadline = 1;
// Programs that are told of two sizes at once may see the last one only, and draw nothing.
constexpr Seconds redrawPause = 0.05;

class Attachment final : SessionLink::Observer {
 public:
  Attachment(Service& service, const TerminalRuntimeSessionInfo& session, const AttachWish& wish)
      : service_(service),
        wish_(wish),
        isNew_(wish.isNew),
        link_(service, *this, session, std::nullopt),
        input_(wish.detachKey) {}

  int run();

 private:
  void takeOutput(ByteView output, std::uint64_t offset) override;
  void missOutput(std::uint64_t bytes) override;
  void takeState(const TerminalRuntimeSessionInfo& session) override;
  void refuseInput() override;
  void loseConnection() override;
  void regainConnection() override;

  void announce();
  void loop();
  bool isDone();
  void turn();
  int pollTimeout() const;
  void readTyped();
  void addTyped(const std::vector<TypedInput::Piece>& pieces);
  void claimSize();
  void takeSignals();
  void suspend();
  void resume();
  void redraw();
  void note(const std::string& text);
  int farewell();
  std::string name() const { return shortName(link_.session().id); }

  Service& service_;
  const AttachWish& wish_;
  // Whether all output is news to the terminal.
  bool isNew_;
  // Before the screen, so that no signal ends the process before the terminal is given back.
  std::optional<SignalPipe> signals_;
  AttachedScreen screen_;
  SessionLink link_;
  TypedInput input_;
  PastOutput past_;

  // The signal that ends this client; SIGHUP also when the terminal is gone.
  int endingSignal_ = 0;
  std::uint64_t missed_ = 0;
  bool isControlNoted_ = false;
  bool isLossNoted_ = false;
  std::optional<Uptime> detachUntil_;
  std::optional<Uptime> redrawAt_;
};

int Attachment::run() {
  if (const WindowSize size = LocalTerminal::size();
      link_.session().running && size != WindowSize{link_.session().columns, link_.session().rows})
    link_.resize(size);
  link_.open();
  announce();
  signals_.emplace(std::vector{SIGWINCH, SIGTERM, SIGHUP, SIGINT, SIGQUIT, SIGTSTP, SIGCONT, SIGPIPE});
  screen_.take();
  if (missed_ > 0 && link_.session().running) redraw();
  loop();
  screen_.giveBack();
  return farewell();
}

void Attachment::announce() {
  if (!wish_.isAnnounced) return;
  const std::string& key = wish_.detachKey.name();
  service_.notices().note("attached to " + name() + (key.empty() ? "." : ", " + key + " detaches."));
  if (missed_ > 0)
    service_.notices().note("the first " + std::to_string(missed_) +
                            " bytes of its output are no longer held; the screen begins without them.");
}

void Attachment::loop() {
  if (!screen_.flush()) endingSignal_ = SIGHUP;
  while (!isDone()) turn();
}

bool Attachment::isDone() {
  if (endingSignal_ != 0 || link_.ending()) return true;
  return detachUntil_ && (link_.input().empty() || *detachUntil_ <= now());
}

void Attachment::turn() {
  link_.setPaused(screen_.isFull());
  const bool readsTyped = !detachUntil_ && link_.input().size() < maximumTyped;
  std::array<pollfd, 4> entries = {{
      {signals_->descriptor(), POLLIN, 0},
      {readsTyped ? screen_.terminal().input() : -1, POLLIN, 0},
      link_.pollEntry(),
      {screen_.waiting() > 0 ? screen_.terminal().output() : -1, POLLOUT, 0},
  }};
  if (::poll(entries.data(), entries.size(), pollTimeout()) < 0 && errno != EINTR)
    throw Trouble("The terminal cannot be waited for. Try another one.");
  if (entries[0].revents != 0) takeSignals();
  // First what came: what is typed goes by the state that the session has now.
  link_.turn(entries[2].revents);
  if (entries[1].revents != 0) readTyped();
  if (input_.heldUntil()) addTyped(input_.expire(now()));
  if (redrawAt_ && *redrawAt_ <= now()) {
    redrawAt_.reset();
    link_.resize(LocalTerminal::size());
  }
  link_.turn(0);
  if (!screen_.flush()) endingSignal_ = SIGHUP;
}

int Attachment::pollTimeout() const {
  std::optional<Uptime> first = link_.deadline();
  for (const std::optional<Uptime>& instant : {input_.heldUntil(), detachUntil_, redrawAt_}) {
    if (instant && (!first || *instant < *first)) first = instant;
  }
  return first ? static_cast<int>(std::ceil(std::max(*first - now(), 0.0) * 1000)) : -1;
}

void Attachment::readTyped() {
  char bytes[readBytes];
  const ssize_t count = ::read(screen_.terminal().input(), bytes, sizeof bytes);
  if (count > 0) {
    addTyped(input_.take({bytes, static_cast<std::size_t>(count)}, now()));
  } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
    endingSignal_ = SIGHUP;
  }
  if (input_.wantsDetach()) detachUntil_ = now() + farewellDeadline;
}

void Attachment::addTyped(const std::vector<TypedInput::Piece>& pieces) {
  for (const TypedInput::Piece& piece : pieces) {
    // Several terminals show this session and all of them answer; the program asked once.
    if (piece.kind != SessionInput::Kind::typed && !link_.input().isAnswering()) continue;
    if (piece.kind == SessionInput::Kind::typed) claimSize();
    link_.input().add(piece.kind, bytesOf(piece.bytes));
  }
}

// The session has the size of the terminal that is typed in, whatever others made of it meanwhile.
void Attachment::claimSize() {
  // As the last answer to typing told it, too: a change of size alone is not pushed.
  const TerminalRuntimeSessionInfo& session = link_.input().session();
  const WindowSize size = LocalTerminal::size();
  if (redrawAt_ || session.controlOwner || size == WindowSize{session.columns, session.rows}) return;
  link_.resize(size);
}

void Attachment::takeSignals() {
  for (const int signal : signals_->take()) {
    if (signal == SIGWINCH) {
      link_.resize(LocalTerminal::size());
    } else if (signal == SIGTSTP) {
      suspend();
    } else if (signal == SIGCONT) {
      resume();
    } else if (signal != SIGPIPE) {
      endingSignal_ = signal;
    }
  }
}

void Attachment::suspend() {
  screen_.giveBack();
  ::kill(::getpid(), SIGSTOP);
}

// What the terminal showed meanwhile is not known, nor which modes it kept.
void Attachment::resume() {
  screen_.take();
  screen_.clear();
  past_ = {};
  isNew_ = false;
  link_.resize(LocalTerminal::size());
  link_.replay();
}

void Attachment::redraw() {
  const WindowSize size = LocalTerminal::size();
  link_.resize({size.columns, size.rows > 1 ? size.rows - 1 : 2});
  redrawAt_ = now() + redrawPause;
}

void Attachment::takeOutput(ByteView output, std::uint64_t offset) {
  std::string_view text = textOf(output);
  const std::uint64_t pastEnd = isNew_ ? 0 : link_.openedAt();
  if (offset < pastEnd) {
    const auto past = static_cast<std::size_t>(std::min<std::uint64_t>(text.size(), pastEnd - offset));
    screen_.show(past_.filter(text.substr(0, past)));
    text.remove_prefix(past);
    if (offset + past == pastEnd) screen_.show(past_.rest());
  }
  screen_.show(text);
}

void Attachment::missOutput(std::uint64_t bytes) {
  missed_ += bytes;
  if (!signals_) return;
  screen_.cutSequence();
  note(std::to_string(bytes) + " bytes of output were skipped");
  if (link_.session().running) redraw();
}

void Attachment::takeState(const TerminalRuntimeSessionInfo& session) {
  if (!isControlNoted_ || session.controlOwner) return;
  isControlNoted_ = false;
  note("control is free again: typing is passed on");
  if (screen_.isOnAlternateScreen()) redraw();
}

void Attachment::refuseInput() {
  if (isControlNoted_) return;
  isControlNoted_ = true;
  note(link_.session().controlOwner.value_or("an agent") +
       " holds control: typing is not passed on meanwhile");
}

void Attachment::loseConnection() {
  // The service lets go of a terminal that cannot keep up; that is made good without a word.
  if (screen_.isFull()) return;
  isLossNoted_ = true;
  note("connection lost: trying again");
}

void Attachment::regainConnection() {
  if (std::exchange(isLossNoted_, false)) note("connected again");
}

void Attachment::note(const std::string& text) {
  if (!service_.notices().isQuiet()) screen_.note("velotide: " + text);
}

int Attachment::farewell() {
  const std::optional<SessionEnding>& ending = link_.ending();
  std::string reason = "detached";
  int status = ExitStatus::success;
  if (ending && ending->kind == SessionEnding::Kind::exited && ending->status >= 0) {
    status = ending->status;
    reason = "exited with " + std::to_string(status);
  } else if (ending) {
    status = ExitStatus::ownFailure;
    reason = ending->kind == SessionEnding::Kind::serviceGone ? "service gone"
             : ending->kind == SessionEnding::Kind::closed    ? "closed elsewhere"
                                                              : "exited with a status that is not known";
  } else if (endingSignal_ != 0) {
    status = ExitStatus::signalBase + endingSignal_;
    reason = "detached by signal " + std::to_string(endingSignal_);
  }
  if (wish_.isAnnounced) {
    if (screen_.isMidLine()) screen_.terminal().writeAll("\n", 1);
    service_.notices().note(reason + " (" + name() + ")");
  } else if (ending && status == ExitStatus::ownFailure) {
    service_.notices().error(reason);
  }
  return status;
}

}  // namespace

int attach(Service& service, const TerminalRuntimeSessionInfo& session, const AttachWish& wish) {
  return Attachment(service, session, wish).run();
}

void refuseOwnSession(const Uuid& session) {
  const std::vector<Uuid> surrounding = surroundingSessions();
  if (std::find(surrounding.begin(), surrounding.end(), session) != surrounding.end())
    throw Trouble("This terminal is shown by that very session (" + shortName(session) +
                  "). Detach first, then try again from outside.");
}

}  // namespace velotide::client
