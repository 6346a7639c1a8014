#include "protocol/transport_frame.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "base/record.h"
#include "protocol/runtime_failure.h"

namespace velotide {
namespace {

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

// Each list is held to its number of cases and against doubles; the words themselves are what clients compile
// in.
template <typename E>
void expectWords(std::size_t count, E one, std::string_view word) {
  const auto words = rawWords(E{});
  EXPECT_EQ(words.size(), count);
  EXPECT_EQ((std::set<std::string>(words.begin(), words.end()).size()), count);
  EXPECT_EQ(rawWord(one), word);
  EXPECT_EQ(fromRawWord<E>(word), one);
}

TEST(RawWords, MatchTheirCases) {
  expectWords(22, TerminalRuntimeAction::acknowledgeAttention, "acknowledgeAttention");
  expectWords(12, RuntimeFailure::inputForegroundChanged, "input_foreground_changed");
  expectWords(12, TerminalSessionEventKind::attentionResolved, "attentionResolved");
  expectWords(9, TerminalAttentionKind::processExited, "processExited");
  expectWords(12, TerminalAgentReason::foregroundLost, "foregroundLost");
  EXPECT_EQ(fromRawWord<RuntimeFailure>("Control_owned"), std::nullopt);
}

}  // namespace
}  // namespace velotide
