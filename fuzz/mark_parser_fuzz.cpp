#include "base/utf8.h"
#include "chunks.h"
#include "commands/shell_integration_parser.h"

using namespace velotide;

namespace {

using Events = std::vector<TerminalLocatedShellEvent>;

constexpr std::string_view prefix = "\x1b]777;Velotide;";
constexpr std::size_t maximumBytes = 32'768;

// Searches everything it keeps again with each chunk: slow, and simple enough to be believed.
class PlainModel {
 public:
  Events accept(std::string_view chunk, std::uint64_t offset) {
    if (chunk.empty()) return {};
    if (next_ != offset) buffer_.clear();
    if (buffer_.empty()) bufferOffset_ = offset;
    next_ = offset + chunk.size();
    buffer_ += chunk;
    Events events;
    for (std::size_t at; (at = buffer_.find(prefix)) != buffer_.npos;) {
      const std::size_t begin = at + prefix.size();
      const std::size_t bell = buffer_.find('\a', begin);
      const std::size_t string = buffer_.find("\x1b\\", begin);
      const std::size_t end = std::min(bell, string);
      if (end == buffer_.npos) {
        drop(at);
        if (buffer_.size() > maximumBytes) drop(buffer_.size() - maximumBytes);
        return events;
      }
      const std::size_t behind = end + (string < bell ? 2 : 1);
      if (end - begin <= maximumBytes) {
        const std::string payload = buffer_.substr(begin, end - begin);
        const auto event = parseShellIntegrationPayload(payload);
        if (event && isValidUtf8(bytesOf(payload)))
          events.push_back({*event, bufferOffset_ + at, bufferOffset_ + behind});
      }
      drop(behind);
    }
    if (buffer_.size() >= prefix.size()) drop(buffer_.size() - prefix.size() + 1);
    return events;
  }
  std::size_t retained() const { return buffer_.size(); }

 private:
  void drop(std::size_t count) {
    buffer_.erase(0, count);
    bufferOffset_ += count;
  }

  std::string buffer_;
  std::uint64_t bufferOffset_ = 0;
  std::optional<std::uint64_t> next_;
};

// Two bytes that no text holds stand for many, so that short inputs reach the bound of a mark.
std::string stretched(ByteView bytes, std::size_t room) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    const std::size_t count = byte == 0xFE ? maximumBytes - 28 : byte == 0xFD ? 9000 : 1;
    text.append(text.size() + count > room ? 1 : count, count == 1 ? static_cast<char>(byte) : 'x');
  }
  return text;
}

}  // namespace

// Chunk by chunk the parser finds what the model finds and keeps as much, also behind a gap, for which an
// empty chunk stands. Without gaps and long marks it finds the same in any chunks.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CutStream input({data, size});
  TerminalShellIntegrationParser parser;
  PlainModel model;
  Events events;
  std::string stream;
  std::uint64_t offset = 7;
  bool isPlain = true;
  for (const ByteView piece : input.chunks) {
    const std::string chunk = stretched(piece, 150'000 - std::min<std::size_t>(stream.size(), 150'000));
    if (chunk.empty()) {
      isPlain = false;
      ++offset;
    }
    const Events expected = model.accept(chunk, offset);
    require(parser.acceptLocated(bytesOf(chunk), offset) == expected);
    require(parser.retainedByteCount() == model.retained());
    require(parser.openMarkByteCount() <= model.retained() && model.retained() <= maximumBytes);
    isPlain = isPlain && model.retained() < maximumBytes;
    events.insert(events.end(), expected.begin(), expected.end());
    stream += chunk;
    offset += chunk.size();
  }
  if (isPlain) require(TerminalShellIntegrationParser().acceptLocated(bytesOf(stream), 7) == events);
  return 0;
}
