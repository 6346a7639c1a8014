#include "service/subscriptions.h"

#include <utility>

#include "protocol/limits.h"
#include "service/output_filling.h"

namespace velotide {

namespace {

TerminalRuntimeResponse emptyPush(const OutputSubscription& subscription, const RuntimeServiceState& state) {
  TerminalRuntimeResponse push;
  push.serviceEpoch = state.epoch;
  push.id = subscription.requestID;
  push.action = TerminalRuntimeAction::subscribe;
  return push;
}

bool hasAgentNews(OutputSubscription& sent, const TerminalAgentMonitor& monitor) {
  if (std::exchange(sent.agentEvidence, monitor.revision().evidence) == monitor.revision().evidence)
    return false;
  return !TerminalAgentSnapshot::sameEvidence(monitor.snapshot(), sent.agent);
}

bool hasAttentionNews(OutputSubscription& sent, const TerminalAttentionStore& attention) {
  const std::uint64_t revision = attention.revision(sent.sessionID);
  if (std::exchange(sent.attentionRevision, revision) == revision) return false;
  return attention.activeItems(sent.sessionID) != sent.attention;
}

// Also notes how far the subscriber's knowledge was compared.
bool hasNews(OutputSubscription& sent, const RuntimeServiceState& state, const RuntimeSession& session,
             Uptime now) {
  return sent.cursor != session.journal().cursor() || sent.running != session.running() ||
         sent.controlEpoch != session.control().epoch() ||
         sent.controlExpiresAt != session.control().expiresAt() ||
         now - sent.publishedAt >= TerminalRuntimeLimits::subscriptionHeartbeat ||
         hasAgentNews(sent, session.agentMonitor()) || hasAttentionNews(sent, state.attention);
}

// Notes what the subscriber knows after this response.
void noteSent(OutputSubscription& subscription, const TerminalRuntimeResponse& sent, Uptime now) {
  subscription.cursor = sent.cursor;
  subscription.isBehind = sent.cursor && sent.cursor->offset < sent.latestOffset;
  subscription.publishedAt = now;
  subscription.attention = sent.attention.value_or(std::vector<TerminalAttentionItem>{});
  if (!sent.session) return;
  subscription.running = sent.session->running;
  subscription.agent = sent.session->agent;
  subscription.controlEpoch = sent.session->controlEpoch;
  subscription.controlExpiresAt = sent.session->controlExpiresAt;
}

}  // namespace

OutputSubscription subscriptionFrom(const TerminalRuntimeRequest& request,
                                    const TerminalRuntimeResponse& response, Uptime now) {
  OutputSubscription subscription;
  subscription.requestID = request.id;
  subscription.sessionID = *request.sessionID;
  noteSent(subscription, response, now);
  return subscription;
}

void publishSubscription(RuntimeClient& client, const RuntimeServiceState& state, Uptime now) {
  OutputSubscription& subscription = *client.subscription;
  const RuntimeSession* session = state.find(subscription.sessionID);
  if (session == nullptr) {
    TerminalRuntimeResponse push = emptyPush(subscription, state);
    push.ok = false;
    push.error = "target_closed";
    client.enqueue(push, now);
    client.subscription.reset();
    return;
  }
  if (!hasNews(subscription, state, *session, now)) return;

  TerminalRuntimeResponse push = emptyPush(subscription, state);
  try {
    fillOutput(push, state, *session, subscription.cursor);
  } catch (const Failure<TerminalRuntimeOutputError>&) {
    return client.disconnect("subscription_failed");
  }
  push.session = session->info();
  client.awaitsEcho = false;
  client.enqueue(push, now);
  noteSent(subscription, push, now);
}

}  // namespace velotide
