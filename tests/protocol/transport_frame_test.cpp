#include "protocol/transport_frame.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "base/record.h"
#include "protocol/runtime_failure.h"

namespace velotide {
namespace {

std::optional<TerminalRuntimeRequest> request(std::string text) {
  JsonDocument document;
  ByteQueue buffer;
  buffer.append(text);
  return decodeRequest(document, buffer.mutableText());
}

TEST(TransportFrame, ReplacesAResponseAboveTheLimitAndKeepsOneAtIt) {
  TerminalRuntimeResponse response;
  response.id = Uuid::random();
  response.serviceEpoch = Uuid::random();
  response.action = TerminalRuntimeAction::list;
  response.error = "";
  ByteQueue out;
  ASSERT_TRUE(encodedTransportFrame(response, out));
  const std::size_t frame = out.size();
  for (const std::size_t excess : {std::size_t{0}, std::size_t{1}}) {
    const std::size_t limit = TerminalRuntimeLimits::maximumResponseBytes;
    response.error = std::string(limit + 1 - frame + excess, 'x');
    out.clear();
    ASSERT_TRUE(encodedTransportFrame(response, out));
    if (excess == 0) {
      EXPECT_EQ(out.size(), limit + 1);
      continue;
    }
    JsonDocument document;
    const auto replaced = decodeResponse(document, out.mutableText().first(out.size() - 1));
    ASSERT_TRUE(replaced);
    TerminalRuntimeResponse expected;
    expected.id = response.id;
    expected.serviceEpoch = response.serviceEpoch;
    expected.action = TerminalRuntimeAction::list;
    expected.ok = false;
    expected.error = "response_too_large";
    EXPECT_EQ(*replaced, expected);
  }
}

TEST(TransportFrame, RefusesALaunchWithoutItsRequiredKeys) {
  const std::string head =
      R"({"protocolVersion":3,"id":"00000000-0000-0000-0000-000000000000","action":"create")";
  const std::string launch = R"("executable":"/bin/sh","directory":"/","columns":80,"rows":24)";
  EXPECT_TRUE(request(head + R"(,"launch":{)" + launch + R"(,"arguments":[],"environment":{}}})"));
  EXPECT_FALSE(request(head + R"(,"launch":{)" + launch + R"(,"environment":{}}})"));
  EXPECT_FALSE(request(head + R"(,"launch":{)" + launch + R"(,"arguments":[]}})"));
  EXPECT_TRUE(request(head + R"(,"sessionID":null,"unknown":[1]})"));
  EXPECT_FALSE(request(head + R"(,"expectedForegroundPID":2147483648})"));
}

// Each list is held to its number of cases and against doubles; the words themselves are what clients compile
// in.
template <typename E>
void expectWords(std::size_t count) {
  const auto words = rawWords(E{});
  EXPECT_EQ(words.size(), count);
  EXPECT_EQ((std::set<std::string>(words.begin(), words.end()).size()), count);
}

TEST(RawWords, MatchTheirCases) {
  expectWords<TerminalRuntimeAction>(22);
  EXPECT_EQ(rawWord(TerminalRuntimeAction::configureReminders), "configureReminders");
  EXPECT_EQ(rawWord(TerminalRuntimeAction::acknowledgeAttention), "acknowledgeAttention");
  expectWords<RuntimeFailure>(12);
  EXPECT_EQ(rawWord(RuntimeFailure::inputForegroundChanged), "input_foreground_changed");
  EXPECT_EQ(fromRawWord<RuntimeFailure>("control_owned"), RuntimeFailure::controlOwned);
  EXPECT_EQ(fromRawWord<RuntimeFailure>("Control_owned"), std::nullopt);
  expectWords<TerminalSessionEventKind>(12);
  EXPECT_EQ(rawWord(TerminalSessionEventKind::attentionResolved), "attentionResolved");
  expectWords<TerminalAttentionKind>(9);
  EXPECT_EQ(rawWord(TerminalAttentionKind::processExited), "processExited");
  expectWords<TerminalAgentReason>(12);
  EXPECT_EQ(rawWord(TerminalAgentReason::foregroundLost), "foregroundLost");
}

}  // namespace
}  // namespace velotide
