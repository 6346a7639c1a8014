#pragma once

#include "protocol/runtime_request.h"
#include "protocol/runtime_response.h"
#include "service/reply_cache.h"
#include "service/service_state.h"

namespace velotide {

// Turns one request into one response. The only place that checks version, capability and preconditions,
// answers a repeated request from the cache, and turns failures of the layers below into the words of the
// wire.
class RequestDispatch {
 public:
  // `state` must outlive the dispatch.
  explicit RequestDispatch(RuntimeServiceState& state) : state_(state) {}

  // Never throws: a failure becomes a response with `ok` false and its word. Output in the response is
  // borrowed from the session's journal.
  TerminalRuntimeResponse perform(const TerminalRuntimeRequest& request);

 private:
  void performAction(const TerminalRuntimeRequest& request, TerminalRuntimeResponse& response);
  void performOnSession(const TerminalRuntimeRequest& request, TerminalRuntimeResponse& response);
  void performSessionAction(const TerminalRuntimeRequest& request, RuntimeSession& session,
                            TerminalRuntimeResponse& response);

  void create(const TerminalRuntimeRequest& request, TerminalRuntimeResponse& response);
  void list(TerminalRuntimeResponse& response) const;
  void acknowledgeAttention(const TerminalRuntimeRequest& request, TerminalRuntimeResponse& response);
  void readEvents(const TerminalRuntimeRequest& request, TerminalRuntimeResponse& response) const;
  void shutdownIfEmpty();
  void diagnostics(TerminalRuntimeResponse& response) const;
  void inspectInput(const RuntimeSession& session, TerminalRuntimeResponse& response) const;
  void bindAgent(const TerminalRuntimeRequest& request, RuntimeSession& session,
                 TerminalRuntimeResponse& response) const;
  void reportAgent(const TerminalRuntimeRequest& request, RuntimeSession& session) const;
  void close(const TerminalRuntimeRequest& request, RuntimeSession& session,
             TerminalRuntimeResponse& response);
  void restartExited(const TerminalRuntimeRequest& request, RuntimeSession& session,
                     TerminalRuntimeResponse& response);

  RuntimeServiceState& state_;
  ReplyCache replies_;
};

}  // namespace velotide
