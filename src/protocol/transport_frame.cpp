#include "protocol/transport_frame.h"

#include "base/record.h"

namespace velotide {

bool encodedTransportFrame(const TerminalRuntimeResponse& response, ByteQueue& out) {
  const std::size_t before = out.size();
  if (!encodeText(out, response)) return false;
  if (out.size() - before > TerminalRuntimeLimits::maximumResponseBytes) {
    out.dropBack(out.size() - before);
    TerminalRuntimeResponse replacement;
    replacement.serviceEpoch = response.serviceEpoch;
    replacement.id = response.id;
    replacement.action = response.action;
    replacement.ok = false;
    replacement.error = "response_too_large";
    if (!encodeText(out, replacement)) return false;
  }
  out.append("\n");
  return true;
}

bool encodedTransportFrame(const TerminalRuntimeRequest& request, ByteQueue& out) {
  if (!encodeText(out, request)) return false;
  out.append("\n");
  return true;
}

std::optional<TerminalRuntimeRequest> decodeRequest(JsonDocument& document, std::span<char> line) {
  return decodeText<TerminalRuntimeRequest>(document, line);
}

std::optional<TerminalRuntimeResponse> decodeResponse(JsonDocument& document, std::span<char> line) {
  return decodeText<TerminalRuntimeResponse>(document, line);
}

}  // namespace velotide
