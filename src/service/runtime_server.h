#pragma once

#include <poll.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/json_document.h"
#include "base/time.h"
#include "service/echo_wait.h"
#include "service/request_dispatch.h"
#include "service/runtime_client.h"
#include "service/service_state.h"

namespace velotide {

// The service: one thread, one poll loop over the listening socket, the clients and the terminals.
// Every descriptor gets a bounded amount of work a turn, and a client's fault ends that client alone.
class RuntimeServer {
 public:
  static constexpr int pollMilliseconds = 50;

  // Claims the root directory. `clock` must outlive the server. Throws Failure<RuntimeFailure> or
  // SystemFailure.
  RuntimeServer(const std::string& root, const Clock& clock);

  // Turns until an orderly shutdown has drained. Throws unavailable when poll fails.
  void run();

  // One pass of the loop, waiting at most `milliseconds` for something to do. False once an orderly shutdown
  // has drained.
  bool turn(int milliseconds = pollMilliseconds);

 private:
  bool beginsRound();
  void reapRetired();
  void giveBackMemory();
  void buildPollSet();
  void pollClients();
  void pollSessions();
  void acceptClients();
  OutputReading readingOfEachTerminal() const;
  void serveDescriptors();
  void serveClient(RuntimeClient& client, short events);
  void serveSession(RuntimeSession& session, short events, OutputReading reading);
  void processFrames(RuntimeClient& client);
  void publishSubscriptions();
  void sendFreshOutput();
  void expireClients();
  bool isExpired(const RuntimeClient& client, Seconds idle) const;
  void removeClient(const RuntimeClient& client, Seconds idle);
  bool hasDrained() const;

  RuntimeServiceState state_;
  RequestDispatch dispatch_;
  JsonDocument document_;
  std::map<int, std::unique_ptr<RuntimeClient>> clients_;
  // The listener, then the clients, then the sessions' terminals.
  std::vector<pollfd> pollSet_;
  std::size_t polledClients_ = 0;
  // Whose terminals these are; looked up again before they are served.
  std::vector<Uuid> polledSessions_;
  EchoWait echoes_;
  std::vector<int> expiring_;
  // Nothing was ready in the last turn.
  bool wasIdle_ = true;
  // A subscriber that took all it was sent has more to get: the next turn is not to wait for anything.
  bool hasMoreToPush_ = false;
  Uptime roundBegan_;
  Uptime gaveBackAt_;
  // When a client last sent something.
  Uptime requestedAt_;
  // While the system gives no connections the listener stays readable; it is left alone until then.
  Uptime acceptAfter_;
};

}  // namespace velotide
