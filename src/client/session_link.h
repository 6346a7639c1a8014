#pragma once

#include <poll.h>

#include <optional>
#include <string>

#include "client/connection.h"
#include "client/local_terminal.h"
#include "client/service.h"
#include "client/session_input.h"

namespace velotide::client {

// How a session came to its end as seen through a link.
struct SessionEnding {
  enum class Kind {
    exited,
    // Closed by somebody else; the program's status is not known.
    closed,
    serviceGone,
  };
  Kind kind = Kind::exited;
  // Of the program; -1 when the service could not learn it.
  std::int32_t status = 0;
};

// One live session: its output as it comes, its changes, and the way for input, over one connection that is
// made again when it is lost. Owned and polled by the loop of a command. Every byte of output comes once and
// in order; where the service no longer held some, a gap is told instead.
class SessionLink {
 public:
  // Told of all that comes; what has no use for its owner may be left out.
  class Observer {
   public:
    virtual ~Observer() = default;
    // `offset` is where `output` begins in the session's stream.
    virtual void takeOutput(ByteView output, std::uint64_t offset) = 0;
    virtual void missOutput(std::uint64_t /*bytes*/) {}
    virtual void takeState(const TerminalRuntimeSessionInfo& /*session*/) {}
    virtual void refuseInput() {}
    virtual void loseConnection() {}
    virtual void regainConnection() {}
  };

  // Both must outlive it. `after`: absent for everything that is held.
  SessionLink(Service& service, Observer& observer, const TerminalRuntimeSessionInfo& session,
              std::optional<TerminalRuntimeOutputCursor> after);
  ~SessionLink();
  SessionLink(const SessionLink&) = delete;
  SessionLink& operator=(const SessionLink&) = delete;

  // Subscribes; throws Trouble when that cannot be had within the bounds of a request. Leaves the rest to the
  // turns that follow once there is something to read from `interruption`.
  void open(int interruption = -1);

  const TerminalRuntimeSessionInfo& session() const { return session_; }
  SessionInput& input() { return input_; }
  const std::optional<SessionEnding>& ending() const { return ending_; }
  // Where the output that was taken ends; absent before the first.
  const std::optional<TerminalRuntimeOutputCursor>& cursor() const { return cursor_; }
  // Where the output ended when the link was opened: what lies before is the past.
  std::uint64_t openedAt() const { return openedAt_.value_or(0); }

  void resize(WindowSize size);
  // Begins anew at the oldest output that is held.
  void replay();
  // While paused no output is read, and the service lets go of a link that is too far behind; it is then made
  // again.
  void setPaused(bool paused) { isPaused_ = paused; }

  // A turn of the owner's loop: what to poll for and until when, and what came of it. Input that was added is
  // sent by the next turn.
  pollfd pollEntry() const;
  std::optional<Uptime> deadline() const;
  void turn(short happened);

 private:
  void connect();
  void subscribe();
  void send(TerminalRuntimeRequest request);
  void sendWaiting();
  void receive();
  void take(const TerminalRuntimeResponse& response);
  void takeSubscription(const TerminalRuntimeResponse& response);
  void takeOutput(const TerminalRuntimeResponse& response);
  void takeRefusal(std::string_view word);
  void watchForEnd(const TerminalRuntimeResponse& response);
  void loseConnection();
  void reconnect();
  void end(SessionEnding::Kind kind);

  Service& service_;
  Observer& observer_;
  TerminalRuntimeSessionInfo session_;
  SessionInput input_;
  // Until the service has answered to it; and the request that is on its way.
  std::optional<WindowSize> wantedSize_;
  std::optional<Uuid> resize_;
  std::optional<TerminalRuntimeOutputCursor> cursor_;
  std::optional<std::uint64_t> openedAt_;
  std::optional<SessionEnding> ending_;

  std::optional<Connection> connection_;
  Uuid serviceEpoch_;
  Uuid subscription_;
  bool isSubscribed_ = false;
  bool isPaused_ = false;

  Uptime now_;
  std::optional<Uptime> lostAt_;
  std::optional<Uptime> retryAt_;
  std::optional<Uptime> inputPausedUntil_;
  // Since when the program is over and all its output taken, though its terminal is open still; and the
  // question whether more came.
  std::optional<Uptime> overSince_;
  std::optional<std::uint64_t> overAt_;
  std::optional<Uptime> inquireAt_;
  Uuid inquiry_;
};

}  // namespace velotide::client
