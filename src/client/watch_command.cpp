#include <errno.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "client/attach.h"
#include "client/commands.h"
#include "client/session_names.h"
#include "client/signal_pipe.h"
#include "client/trouble.h"
#include "client/watch_display.h"
#include "client/watch_feed.h"
#include "client/watch_keys.h"

namespace velotide::client {

namespace {

// Ages are shown in seconds first.
constexpr Seconds redrawPause = 1;
constexpr Seconds messageTime = 6;

class Watch {
 public:
  Watch(Service& service, DetachKey detachKey)
      : service_(service),
        acting_(service.root(), quiet_),
        detachKey_(std::move(detachKey)),
        feed_(acting_, sessions_) {}

  int run();

 private:
  void take();
  void giveBack();
  void turn();
  void draw();
  void keepSelection();
  void takeSignals();
  void readKeys();
  void takeKey(WatchKey key);
  void takeAnswer(WatchKey key);
  void move(std::ptrdiff_t step);
  void suspend();
  void attachSelected();
  bool hasEnded(const Uuid& id);
  void waitForKey();
  void acknowledge();
  void close();
  // Does it, or tells why not.
  void attempt(const std::string& done, auto&& action);
  void say(const std::string& message);

  Service& service_;
  // The screen is not for notices while it is taken.
  const Notices quiet_{true};
  Service acting_;
  DetachKey detachKey_;
  // Before the display, so that no signal ends the process before the terminal is given back.
  std::optional<SignalPipe> signals_;
  WatchDisplay display_{LocalTerminal::isColored()};
  WatchedSessions sessions_;
  WatchFeed feed_;
  WatchView view_;
  std::size_t selectedRow_ = 0;
  WindowSize size_{0, 0};
  Uptime messageUntil_;
  bool isDone_ = false;
  // The signal that ends this client; SIGHUP also when the terminal is gone.
  int endingSignal_ = 0;
};

int Watch::run() {
  // Says in words what is wrong while there is no screen in the way.
  sessions_.takeSessions(service_.sessions());
  sessions_.takeAttention(service_.call(TerminalRuntimeRequest::make(TerminalRuntimeAction::listAttention))
                              .attention.value_or(std::vector<TerminalAttentionItem>()));
  take();
  while (!isDone_ && endingSignal_ == 0) turn();
  giveBack();
  return endingSignal_ == 0 ? ExitStatus::success : ExitStatus::signalBase + endingSignal_;
}

void Watch::take() {
  signals_.emplace(std::vector{SIGWINCH, SIGTERM, SIGHUP, SIGINT, SIGQUIT, SIGTSTP, SIGCONT, SIGPIPE});
  display_.take();
}

void Watch::giveBack() {
  display_.giveBack();
  signals_.reset();
}

void Watch::turn() {
  keepSelection();
  draw();
  const Seconds pause = std::clamp(feed_.deadline() - now(), 0.0, redrawPause);
  std::array<pollfd, 4> entries = {{
      {signals_->descriptor(), POLLIN, 0},
      {display_.terminal().input(), POLLIN, 0},
      feed_.pollEntry(),
      {display_.wantsWrite() ? display_.terminal().output() : -1, POLLOUT, 0},
  }};
  if (::poll(entries.data(), entries.size(), static_cast<int>(std::ceil(pause * 1000))) < 0 && errno != EINTR)
    throw Trouble("The terminal cannot be waited for. Try another one.");
  feed_.turn(entries[2].revents);
  if (entries[0].revents != 0) takeSignals();
  if (entries[1].revents != 0) readKeys();
}

void Watch::draw() {
  const WindowSize size = LocalTerminal::size();
  if (size != size_) display_.forget();
  size_ = size;
  if (now() >= messageUntil_) view_.message.clear();
  view_.trouble = feed_.trouble();
  display_.draw(layOut(sessions_.rows(), view_, size, SystemClock().date()));
  if (!display_.flush()) endingSignal_ = SIGHUP;
}

// The selection follows its session wherever that is sorted to; when the session is gone, the one in its
// place is next, and a question about it has no object any more.
void Watch::keepSelection() {
  const std::vector<WatchedSession>& rows = sessions_.rows();
  const auto found = std::find_if(rows.begin(), rows.end(),
                                  [this](const WatchedSession& row) { return row.id == view_.selected; });
  if (found != rows.end()) {
    selectedRow_ = static_cast<std::size_t>(found - rows.begin());
    return;
  }
  view_.asksToClose = false;
  selectedRow_ = rows.empty() ? 0 : std::min(selectedRow_, rows.size() - 1);
  view_.selected = rows.empty() ? std::nullopt : std::optional(rows[selectedRow_].id);
}

void Watch::takeSignals() {
  for (const int signal : signals_->take()) {
    if (signal == SIGWINCH) {
      display_.forget();
    } else if (signal == SIGTSTP) {
      suspend();
    } else if (signal == SIGCONT) {
      // What the terminal showed meanwhile is not known, nor which modes it kept.
      display_.take();
    } else if (signal != SIGPIPE) {
      endingSignal_ = signal;
    }
  }
}

void Watch::suspend() {
  display_.giveBack();
  ::kill(::getpid(), SIGSTOP);
}

void Watch::readKeys() {
  char bytes[256];
  const ssize_t count = ::read(display_.terminal().input(), bytes, sizeof bytes);
  if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) endingSignal_ = SIGHUP;
  if (count <= 0) return;
  for (const WatchKey key : watchKeys({bytes, static_cast<std::size_t>(count)})) {
    if (view_.asksToClose) return takeAnswer(key);
    takeKey(key);
    // What was typed before a question or a session was seen is no answer to it.
    if (view_.asksToClose || isDone_ || key == WatchKey::attach) return;
  }
}

void Watch::takeKey(WatchKey key) {
  view_.message.clear();
  const auto page = static_cast<std::ptrdiff_t>(pageRows(size_));
  const auto all = static_cast<std::ptrdiff_t>(sessions_.rows().size());
  switch (key) {
    case WatchKey::up:
      return move(-1);
    case WatchKey::down:
      return move(1);
    case WatchKey::pageUp:
      return move(-page);
    case WatchKey::pageDown:
      return move(page);
    case WatchKey::first:
      return move(-all);
    case WatchKey::last:
      return move(all);
    case WatchKey::attach:
      return attachSelected();
    case WatchKey::acknowledge:
      return acknowledge();
    case WatchKey::close:
      return close();
    case WatchKey::quit:
      isDone_ = true;
      return;
    case WatchKey::suspend:
      // As the terminal would have done it: to the whole job.
      ::kill(0, SIGTSTP);
      return;
    case WatchKey::redraw:
      return display_.forget();
    case WatchKey::yes:
    case WatchKey::other:
      return;
  }
}

void Watch::move(std::ptrdiff_t step) {
  const std::vector<WatchedSession>& rows = sessions_.rows();
  if (rows.empty()) return;
  const auto last = static_cast<std::ptrdiff_t>(rows.size()) - 1;
  const std::ptrdiff_t row =
      std::clamp<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(selectedRow_) + step, 0, last);
  selectedRow_ = static_cast<std::size_t>(row);
  view_.selected = rows[selectedRow_].id;
}

void Watch::attempt(const std::string& done, auto&& action) {
  if (!feed_.trouble().empty()) {
    say("Not now: " + feed_.trouble() + ".");
    return;
  }
  try {
    action();
    say(done);
  } catch (const Trouble& trouble) {
    say(trouble.what());
  }
  feed_.refresh();
}

void Watch::say(const std::string& message) {
  view_.message = message;
  messageUntil_ = now() + messageTime;
}

void Watch::acknowledge() {
  const TerminalAttentionItem* item = view_.selected ? sessions_.firstUnread(*view_.selected) : nullptr;
  if (!item) {
    say("Nothing to acknowledge here.");
    return;
  }
  attempt("Acknowledged: " + attentionWord(item->kind) + " of " + shortName(item->tabID) + ".", [&] {
    TerminalRuntimeRequest request =
        TerminalRuntimeRequest::make(TerminalRuntimeAction::acknowledgeAttention);
    request.attentionID = item->id;
    request.attentionVersion = item->version;
    const TerminalRuntimeResponse response = acting_.ask(std::move(request));
    if (response.ok) return;
    const bool hasChanged = response.error == "staleVersion" || response.error == "notFound";
    throw Trouble(hasChanged ? "It changed at this moment. Look again."
                             : explain(response.error.value_or("")));
  });
}

void Watch::close() {
  const TerminalRuntimeSessionInfo* session = view_.selected ? sessions_.find(*view_.selected) : nullptr;
  if (!session) return;
  if (session->running)
    view_.asksToClose = true;
  else
    attempt("Closed " + shortName(session->id) + ".", [&] { closeSession(acting_, *view_.selected); });
}

void Watch::takeAnswer(WatchKey key) {
  view_.asksToClose = false;
  if (key == WatchKey::yes)
    attempt("Closed " + shortName(*view_.selected) + ".", [&] { closeSession(acting_, *view_.selected); });
}

void Watch::attachSelected() {
  if (!view_.selected) return;
  attempt("", [&] {
    const Uuid id = *view_.selected;
    refuseOwnSession(id);
    const std::optional<TerminalRuntimeSessionInfo> session = acting_.session(id);
    if (!session) throw Trouble("That session was closed.");
    giveBack();
    try {
      // Of its own: the service may have been started again since the beginning, with another key.
      Service fresh(service_.root(), service_.notices());
      const int status = attach(fresh, *session, {detachKey_, false, true});
      // A signal that detached was meant for this whole client.
      if (hasEnded(id))
        waitForKey();
      else if (status > ExitStatus::signalBase)
        endingSignal_ = status - ExitStatus::signalBase;
    } catch (const Trouble&) {
      take();
      throw;
    }
    if (endingSignal_ == 0) take();
  });
}

bool Watch::hasEnded(const Uuid& id) {
  try {
    const std::optional<TerminalRuntimeSessionInfo> session = acting_.session(id);
    return !session || !session->running;
  } catch (const Trouble&) {
    return true;
  }
}

// What a session left on the screen can be read until then.
void Watch::waitForKey() {
  service_.notices().error("press a key to go back to the list.");
  SignalPipe signals({SIGTERM, SIGHUP, SIGINT, SIGQUIT});
  LocalTerminal terminal;
  terminal.makeRaw();
  std::array<pollfd, 2> entries = {{{signals.descriptor(), POLLIN, 0}, {terminal.input(), POLLIN, 0}}};
  while (::poll(entries.data(), entries.size(), -1) < 0 && errno == EINTR) {
  }
  for (const int signal : signals.take()) endingSignal_ = signal;
  char bytes[256];
  if (entries[1].revents != 0 && ::read(terminal.input(), bytes, sizeof bytes) <= 0) endingSignal_ = SIGHUP;
}

}  // namespace

int watchSessions(Service& service, const std::string& detachKey) {
  DetachKey key = DetachKey::named(detachKey);
  if (!LocalTerminal::isPresent())
    throw Trouble("Watching needs a terminal. Without one: velotide ls --json");
  return Watch(service, std::move(key)).run();
}

}  // namespace velotide::client
