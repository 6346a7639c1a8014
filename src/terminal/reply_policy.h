#pragma once

#include "base/bytes.h"

namespace velotide {

// Tells the answers that a terminal gives by itself from typing: they must reach the program even while an
// agent holds control, and must not become a way around it.
namespace TerminalRuntimeReplyPolicy {

// Whether the bytes are one to sixteen complete replies (cursor, device and window reports, colour reports,
// graphics replies) and nothing else. Longer than 1024 bytes never is.
bool allows(ByteView data);

}  // namespace TerminalRuntimeReplyPolicy

namespace TerminalMouseReportPolicy {

// Whether the bytes are one mouse report in the classic, UTF-8, SGR or decimal encoding.
bool isMouseReport(ByteView data);

}  // namespace TerminalMouseReportPolicy

}  // namespace velotide
