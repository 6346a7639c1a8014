#include "chunks.h"
#include "client/trouble.h"
#include "client/typed_input.h"
#include "client/watch_keys.h"
#include "terminal/reply_policy.h"

using namespace velotide;
using namespace velotide::client;

namespace {

// What may pass for a terminal's answer is one in every way: it is made of escape sequences alone.
void checkPolicies(ByteView bytes) {
  const std::string_view text = textOf(bytes);
  const bool isReply = TerminalRuntimeReplyPolicy::allows(bytes);
  const bool isMouse = TerminalMouseReportPolicy::isMouseReport(bytes);
  require(!(isReply && isMouse));
  if (!isReply) return;
  require(bytes.size() <= 1024 && text.starts_with('\x1b'));
  std::size_t sequences = 0;
  SequenceScanner scanner;
  scanner.scan(
      text, [](std::string_view) { require(false); }, [&](std::string_view) { ++sequences; });
  require(sequences >= 1 && sequences <= 16 && scanner.held().empty());
  // No part of an answer passes for a whole one unless it is made of whole ones.
  require(!TerminalRuntimeReplyPolicy::allows(bytes.first(bytes.size() - 1)));
}

}  // namespace

// What the client takes for an answer that the service lets anybody give is one for the service too; and
// however the stream is cut, everything typed comes out again, in order.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CutStream input({data, size});
  checkPolicies(input.stream);
  TypedInput typed(DetachKey::named("none"));
  std::string passed;
  const auto pass = [&](const std::vector<TypedInput::Piece>& pieces) {
    for (const TypedInput::Piece& piece : pieces) {
      passed += piece.bytes;
      if (piece.kind == SessionInput::Kind::reply)
        require(TerminalRuntimeReplyPolicy::allows(bytesOf(piece.bytes)));
    }
  };
  for (const ByteView chunk : input.chunks) pass(typed.take(textOf(chunk), Uptime{1}));
  pass(typed.expire(Uptime{2}));
  require(passed == textOf(input.stream));
  require(watchKeys(textOf(input.stream)).size() <= input.stream.size());
  return 0;
}
