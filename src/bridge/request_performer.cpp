#include "bridge/request_performer.h"

#include <exception>
#include <utility>

#include "base/failure.h"

namespace velotide {

namespace {

using AgentError = TerminalAgentReportError;

RuntimeNativeResponse responseTo(const std::string& id, std::string_view action,
                                 const TerminalSessionEventStore& events) {
  RuntimeNativeResponse response;
  response.id = id;
  response.action = action;
  response.snapshotSequence = events.sequence();
  return response;
}

// One request on its way to its answer.
class Performance {
 public:
  Performance(const RuntimeNativeRequest& request, const BridgeTargets& targets, BridgeSessions& sessions,
              Date now)
      : request_(request), targets_(targets), sessions_(sessions), now_(now) {}

  // Fills in the answer; a wait's comes later. Throws what becomes an error word.
  void perform(RuntimeNativeResponse& response) {
    const auto action = fromRawWord<RuntimeNativeAction>(request_.action);
    if (!action) {
      runningSession();
      throw Failure(AgentError::invalidCapability);
    }
    switch (*action) {
      case RuntimeNativeAction::listAttention:
        return listAttention(response);
      case RuntimeNativeAction::getAgentState:
        response.agent = sessions_.agent(session());
        return;
      case RuntimeNativeAction::readSessionEvents:
        return readEvents(response);
      case RuntimeNativeAction::waitSession:
        return beginWait();
      case RuntimeNativeAction::cancelWait:
        return cancelWait();
      case RuntimeNativeAction::cancelAllWaits:
        return waitsOfOwner().cancelAll(*request_.controlID, now_);
      case RuntimeNativeAction::bindNativeAgent:
        return bindAgent(response);
      case RuntimeNativeAction::reportAgentState:
        return reportAgent(response);
    }
  }

 private:
  Uuid session() const {
    const std::optional<Uuid> tabID = request_.tab ? Uuid::parse(*request_.tab) : std::nullopt;
    if (!tabID || !sessions_.contains(*tabID)) throw Failure(AgentError::unavailable);
    return *tabID;
  }

  Uuid runningSession() const {
    const Uuid tabID = session();
    if (!sessions_.isRunning(tabID)) throw Failure(AgentError::unavailable);
    return tabID;
  }

  void listAttention(RuntimeNativeResponse& response) const {
    const TerminalAttentionStore* store = targets_.attentionStore;
    if (store == nullptr) throw Failure(AgentError::unavailable);
    response.attention = request_.tab ? store->activeItems(session()) : store->activeItems();
  }

  void readEvents(RuntimeNativeResponse& response) const {
    response.eventBatch = targets_.events.read(request_.eventCursor.value_or(targets_.events.cursor()),
                                               request_.eventLimit.value_or(100));
  }

  void beginWait() const {
    if (targets_.waits == nullptr || !request_.controlID || !request_.waitSpec)
      throw Failure(TerminalWaitError::invalidSpec);
    targets_.waits->begin(request_.id, *request_.controlID, *request_.waitSpec, now_);
  }

  TerminalWaitCoordinator& waitsOfOwner() const {
    if (targets_.waits == nullptr || !request_.controlID || !Uuid::parse(*request_.controlID))
      throw Failure(TerminalWaitError::invalidSpec);
    return *targets_.waits;
  }

  void cancelWait() const {
    TerminalWaitCoordinator& waits = waitsOfOwner();
    if (!request_.waitID) throw Failure(TerminalWaitError::invalidSpec);
    waits.cancel(*request_.waitID, *request_.controlID, now_);
  }

  void bindAgent(RuntimeNativeResponse& response) const {
    const Uuid tabID = runningSession();
    // Agents of the other kinds bind through the socket.
    if (request_.agentKind != TerminalAgentKind::tesseral ||
        !sessions_.authorizes(tabID, request_.nativeAgentToken))
      throw Failure(AgentError::invalidCapability);
    sessions_.updateAgent(tabID, [&](TerminalAgentMonitor& monitor) {
      response.agentGrant = monitor.bind(*request_.agentKind, std::nullopt, now_);
    });
    tellAgent(response, tabID);
  }

  void reportAgent(RuntimeNativeResponse& response) const {
    const Uuid tabID = runningSession();
    if (!request_.agentReport) throw Failure(AgentError::invalidState);
    sessions_.updateAgent(
        tabID, [&](TerminalAgentMonitor& monitor) { monitor.report(*request_.agentReport, now_); });
    tellAgent(response, tabID);
  }

  void tellAgent(RuntimeNativeResponse& response, const Uuid& tabID) const {
    response.agent = sessions_.agent(tabID);
    response.snapshotSequence = targets_.events.sequence();
  }

  const RuntimeNativeRequest& request_;
  const BridgeTargets& targets_;
  BridgeSessions& sessions_;
  const Date now_;
};

}  // namespace

std::optional<RuntimeNativeResponse> performRequest(const RuntimeNativeRequest& request,
                                                    const BridgeTargets& targets, BridgeSessions& sessions,
                                                    Date now) {
  const RuntimeNativeResponse base = responseTo(request.id, request.action, targets.events);
  std::string error;
  try {
    RuntimeNativeResponse response = base;
    Performance(request, targets, sessions, now).perform(response);
    if (request.action == rawWord(RuntimeNativeAction::waitSession)) return std::nullopt;
    return response;
  } catch (const Failure<AgentError>& failure) {
    error = rawWord(failure.word);
  } catch (const Failure<TerminalWaitError>& failure) {
    error = rawWord(failure.word);
  } catch (const Failure<TerminalEventReadError>& failure) {
    error = rawWord(failure.word);
  } catch (const std::exception&) {
    error = "invalid_request";
  }
  RuntimeNativeResponse refusal = base;
  refusal.ok = false;
  refusal.error = std::move(error);
  return refusal;
}

RuntimeNativeResponse waitResponse(TerminalWaitResult result, const TerminalSessionEventStore& events) {
  RuntimeNativeResponse response =
      responseTo(result.waitID, rawWord(RuntimeNativeAction::waitSession), events);
  response.waitResult = std::move(result);
  return response;
}

}  // namespace velotide
