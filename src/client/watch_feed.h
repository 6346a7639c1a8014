#pragma once

#include <poll.h>

#include <optional>
#include <string>

#include "client/connection.h"
#include "client/service.h"
#include "client/watched_sessions.h"

namespace velotide::client {

// Keeps WatchedSessions as the service knows them, over one connection that is made again when it is lost.
// Twice a second it asks for what happened, and for everything once something did that shows; one request at
// a time, so that a service that stands still is not asked more and more. Owned and polled by the loop of
// `watch`; never waits.
class WatchFeed {
 public:
  // Both must outlive it.
  WatchFeed(Service& service, WatchedSessions& sessions) : service_(service), sessions_(sessions) {}

  // Why what is known may be old; empty while it is not.
  std::string trouble() const;
  // Ask at once, and for everything.
  void refresh();

  // A turn of the owner's loop: what to poll for and until when, and what came of it. Throws Trouble when the
  // service speaks another protocol.
  pollfd pollEntry() const;
  Uptime deadline() const;
  void turn(short happened);

 private:
  enum class Step { resting, asksEvents, asksSessions, asksAttention };

  void connect();
  void loseConnection();
  void ask(TerminalRuntimeAction action, Step step);
  void receive();
  void take(const TerminalRuntimeResponse& response);
  void takeEvents(const TerminalEventBatch& batch);
  void rest();

  Service& service_;
  WatchedSessions& sessions_;
  std::optional<Connection> connection_;
  Step step_ = Step::resting;
  Uuid asked_;
  // Up to where the events are known; everything is asked for when absent.
  std::optional<TerminalEventCursor> cursor_;
  // Whether what happened before the connection was made has been asked for: it tells when sessions ended.
  bool hasPast_ = false;
  bool isNews_ = false;
  Uptime now_;
  // When to ask or to connect next.
  Uptime nextAt_;
  Uptime askedAt_;
  bool isGone_ = false;
  std::string refusal_;
};

}  // namespace velotide::client
