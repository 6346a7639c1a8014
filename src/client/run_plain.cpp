#include "client/run_plain.h"

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <utility>

#include "base/byte_queue.h"
#include "client/plain_input.h"
#include "client/session_link.h"
#include "client/signal_pipe.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

// The service lets go of whoever falls 2 MiB behind, which at a program's full speed takes 20 ms. So output
// comes in bursts: after so much of it no more input is passed on and the program's terminal is told to stop,
// until that is done and what came is nearly written.
constexpr std::size_t burst = 256 * 1024;
constexpr std::size_t resumeAt = 64 * 1024;
// From here on the service drops what it cannot hold.
constexpr std::size_t fullAt = 64 * 1024 * 1024;
// Written in one turn.
constexpr std::size_t fairShare = 256 * 1024;
constexpr std::size_t maximumUnsent = 65536;
// The key that lets a terminal go on waits behind input that the stopped program does not read; so much
// always has room in the terminal. With more of it, holding back the input has to do.
constexpr std::size_t stoppableInput = 500;
// How long to wait for the terminal to be set up before data is written into it all the same.
constexpr Seconds setUpDeadline = 3;

bool isPipeLike(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && !S_ISREG(status.st_mode);
}

class PlainRun final : SessionLink::Observer {
 public:
  PlainRun(Service& service, const TerminalRuntimeSessionInfo& session)
      : service_(service), link_(service, *this, session, std::nullopt) {
    link_.input().expectNoEcho(true);
  }

  int run();

 private:
  void takeOutput(ByteView output, std::uint64_t) override {
    output_.append(output);
    burst_ += output.size();
  }
  void missOutput(std::uint64_t bytes) override { missed_ += bytes; }
  void refuseInput() override;
  void loseConnection() override;

  bool isDone() const;
  void turn();
  int pollTimeout() const;
  void takeSignals();
  void readInput();
  void write();
  void control();
  void suspendIfDue();
  void type(char key) { link_.input().add(SessionInput::Kind::typed, bytesOf({&key, 1})); }
  int status() const;

  Service& service_;
  SessionLink link_;
  PlainInput encoder_;
  ByteQueue output_;
  SignalPipe signals_{{SIGTERM, SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTSTP}};
  // A write of at most so much never blocks when poll(2) said that it can be done.
  const std::size_t writeBytes_ = isPipeLike(STDOUT_FILENO) ? PIPE_BUF : 65536;
  const bool mayStop_ = inputAllowsStopping();
  const Uptime begin_ = now();
  std::uint64_t missed_ = 0;
  int endingSignal_ = 0;
  bool hasInput_ = true;
  std::size_t sentInput_ = 0;
  std::size_t burst_ = 0;
  bool isHeld_ = false;
  bool isStopped_ = false;
  bool isRefused_ = false;
  bool wantsSuspension_ = false;
};

int PlainRun::run() {
  link_.open();
  while (!isDone()) turn();
  if (missed_ > 0)
    service_.notices().error(std::to_string(missed_) +
                             " bytes of output were lost: they came faster than they could be taken.");
  return status();
}

bool PlainRun::isDone() const { return endingSignal_ != 0 || (link_.ending() && output_.empty()); }

void PlainRun::turn() {
  link_.setPaused(output_.size() > fullAt);
  const bool readsInput = hasInput_ && !isHeld_ && !link_.ending() && link_.input().size() < maximumUnsent;
  std::array<pollfd, 4> entries = {{
      {signals_.descriptor(), POLLIN, 0},
      {readsInput ? STDIN_FILENO : -1, POLLIN, 0},
      link_.pollEntry(),
      {output_.empty() ? -1 : STDOUT_FILENO, POLLOUT, 0},
  }};
  if (link_.ending()) entries[2].fd = -1;
  if (::poll(entries.data(), entries.size(), pollTimeout()) < 0 && errno != EINTR)
    throw Trouble("Standard input and output cannot be waited for. Check what they are redirected to.");
  if (entries[0].revents != 0) takeSignals();
  if (entries[1].revents != 0) readInput();
  if (now() - begin_ > setUpDeadline) link_.input().expectNoEcho(false);
  link_.turn(entries[2].revents);
  if (!output_.empty()) write();
  if (!link_.ending()) control();
  suspendIfDue();
}

int PlainRun::pollTimeout() const {
  const std::optional<Uptime> deadline = link_.deadline();
  return deadline ? static_cast<int>(std::ceil(std::max(*deadline - now(), 0.0) * 1000)) : -1;
}

void PlainRun::takeSignals() {
  for (const int signal : signals_.take()) {
    if (signal == SIGINT) {
      type(PlainInput::interrupt);
    } else if (signal == SIGQUIT) {
      type(PlainInput::quit);
    } else if (signal == SIGTSTP) {
      wantsSuspension_ = true;
    } else if (signal != SIGPIPE) {
      endingSignal_ = signal;
    }
  }
}

void PlainRun::readInput() {
  char bytes[16384];
  const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof bytes);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  hasInput_ = count > 0;
  const std::string keys =
      hasInput_ ? encoder_.encode({bytes, static_cast<std::size_t>(count)}) : encoder_.end();
  sentInput_ += keys.size();
  link_.input().add(SessionInput::Kind::typed, bytesOf(keys));
}

void PlainRun::write() {
  // As fast as output comes in, as long as the reader keeps up.
  for (std::size_t total = 0; total < fairShare && !output_.empty() && waitFor(STDOUT_FILENO, POLLOUT, 0);) {
    const ByteView waiting = output_.view();
    const ssize_t count = ::write(STDOUT_FILENO, waiting.data(), std::min(waiting.size(), writeBytes_));
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count < 0) {
      if (errno != EPIPE) throw Trouble("Standard output takes no more. Check the disk behind it.");
      endingSignal_ = SIGPIPE;
      return;
    }
    output_.consume(static_cast<std::size_t>(count));
    total += static_cast<std::size_t>(count);
  }
}

void PlainRun::control() {
  if (!isHeld_ && (wantsSuspension_ || burst_ >= burst || output_.size() >= burst)) {
    isHeld_ = true;
    isStopped_ = mayStop_ && sentInput_ < stoppableInput;
    if (isStopped_) type(PlainInput::stop);
  }
  // Not before the service has passed on all keys: only then is the stop known to have worked.
  if (isHeld_ && !wantsSuspension_ && output_.size() < resumeAt && link_.input().empty()) {
    isHeld_ = false;
    burst_ = 0;
    if (std::exchange(isStopped_, false)) type(PlainInput::resume);
  }
  link_.turn(0);
}

// Not before the program was told to stop, where it can be: nobody takes its output meanwhile.
void PlainRun::suspendIfDue() {
  if (!wantsSuspension_ || (isStopped_ && !link_.ending() && !link_.input().empty())) return;
  wantsSuspension_ = false;
  ::kill(::getpid(), SIGSTOP);
}

void PlainRun::refuseInput() {
  if (std::exchange(isRefused_, true)) return;
  service_.notices().error(link_.session().controlOwner.value_or("an agent") +
                           " took control of the session: standard input is not passed on and was lost.");
}

void PlainRun::loseConnection() {
  // The service lets go of whoever cannot keep up; that is no news.
  if (output_.size() <= fullAt) service_.notices().note("connection lost: trying again");
}

int PlainRun::status() const {
  if (endingSignal_ != 0) return ExitStatus::signalBase + endingSignal_;
  const SessionEnding& ending = *link_.ending();
  if (ending.kind == SessionEnding::Kind::exited && ending.status >= 0)
    return missed_ > 0 || isRefused_ ? ExitStatus::ownFailure : ending.status;
  service_.notices().error(ending.kind == SessionEnding::Kind::serviceGone ? "service gone"
                           : ending.kind == SessionEnding::Kind::closed
                               ? "closed elsewhere"
                               : "exited with a status that is not known");
  return ExitStatus::ownFailure;
}

}  // namespace

bool inputAllowsStopping() {
  struct stat status {};
  return ::fstat(STDIN_FILENO, &status) != 0 || S_ISCHR(status.st_mode);
}

int runPlain(Service& service, const TerminalRuntimeSessionInfo& session) {
  return PlainRun(service, session).run();
}

}  // namespace velotide::client
