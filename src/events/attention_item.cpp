#include "events/attention_item.h"

#include "base/fatal.h"

namespace velotide {

TerminalAttentionKind TerminalAttentionTerminalContext::attentionKind() const {
  switch (kind) {
    case Kind::bell:
      return TerminalAttentionKind::bell;
    case Kind::commandFinished:
      return failed ? TerminalAttentionKind::commandFailed : TerminalAttentionKind::commandCompleted;
    case Kind::processExited:
      return TerminalAttentionKind::processExited;
  }
  fatal("an attention context of no kind");
}

}  // namespace velotide
