#include "protocol/transport_frame.h"

#include <gtest/gtest.h>

#include "base/record.h"

namespace velotide {
namespace {

TEST(TransportFrame, ReplacesAResponseAboveTheLimitAndKeepsOneAtIt) {
  constexpr std::size_t limit = TerminalRuntimeLimits::maximumResponseBytes;
  TerminalRuntimeResponse response;
  response.id = Uuid::random();
  response.serviceEpoch = Uuid::random();
  response.action = TerminalRuntimeAction::list;
  response.error = "";
  ByteQueue out;
  ASSERT_TRUE(encodedTransportFrame(response, out));
  response.error = std::string(limit + 1 - out.size(), 'x');
  out.clear();
  ASSERT_TRUE(encodedTransportFrame(response, out));
  EXPECT_EQ(out.size(), limit + 1);

  *response.error += 'x';
  out.clear();
  ASSERT_TRUE(encodedTransportFrame(response, out));
  JsonDocument document;
  TerminalRuntimeResponse expected;
  expected.id = response.id;
  expected.serviceEpoch = response.serviceEpoch;
  expected.action = TerminalRuntimeAction::list;
  expected.ok = false;
  expected.error = "response_too_large";
  EXPECT_EQ(decodeResponse(document, out.mutableText().first(out.size() - 1)), expected);
}

}  // namespace
}  // namespace velotide
