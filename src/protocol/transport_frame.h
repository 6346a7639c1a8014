#pragma once

#include <optional>
#include <span>

#include "base/byte_queue.h"
#include "base/json_document.h"
#include "protocol/runtime_request.h"
#include "protocol/runtime_response.h"

namespace velotide {

// One record on the wire: its JSON text and a line feed.

// Appends the frame of `response` to `out`. A response whose text exceeds the limit is replaced by one that
// says "response_too_large". False, with `out` unchanged, when it cannot be expressed in JSON.
bool encodedTransportFrame(const TerminalRuntimeResponse& response, ByteQueue& out);
bool encodedTransportFrame(const TerminalRuntimeRequest& request, ByteQueue& out);

// The record in one line without its line feed; the line is parsed in place (see JsonDocument::parse).
std::optional<TerminalRuntimeRequest> decodeRequest(JsonDocument& document, std::span<char> line);
std::optional<TerminalRuntimeResponse> decodeResponse(JsonDocument& document, std::span<char> line);

}  // namespace velotide
