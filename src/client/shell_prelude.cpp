#include "client/shell_prelude.h"

namespace velotide::client {

namespace {

constexpr char bell = '\a';
constexpr std::string_view titleBegin = "\x1b]0;";
// A title is a line of a terminal's; what is longer is not the shell's.
constexpr std::size_t maximumTitle = 4096;

// The prelude's pieces are known one by one, in their order, each of which may be missing.
class PreludeReader {
 public:
  explicit PreludeReader(std::string_view output) : rest_(output), size_(output.size()) {}

  void skip(std::string_view piece) {
    if (rest_.starts_with(piece))
      rest_.remove_prefix(piece.size());
    else if (piece.starts_with(rest_))
      needsMore_ = true;
  }

  bool skipTitle() {
    if (!rest_.starts_with(titleBegin)) {
      skip(titleBegin);
      return false;
    }
    const std::size_t end = rest_.find(bell);
    needsMore_ = needsMore_ || (end == rest_.npos && rest_.size() < maximumTitle);
    if (end >= maximumTitle) return false;
    rest_.remove_prefix(end + 1);
    return true;
  }

  ShellPrelude result() const { return {size_ - rest_.size(), needsMore_}; }

 private:
  std::string_view rest_;
  const std::size_t size_;
  bool needsMore_ = false;
};

}  // namespace

ShellPrelude shellPrelude(std::string_view shell, std::string_view output) {
  if (shell != "fish") return {};
  PreludeReader reader(output);
  reader.skip("\x1b[?2004l");
  const bool hasTitle = reader.skipTitle();
  for (const std::string_view reset : {"\x1b[30m", "\x1b(B", "\x1b[m"}) reader.skip(reset);
  if (hasTitle) reader.skip("\r");
  return reader.result();
}

}  // namespace velotide::client
