#include "client/watch_display.h"

namespace velotide::client {

namespace {

// Lines do not wrap, so that a character that this terminal draws wider than others disturbs no other line.
constexpr std::string_view enter = "\x1b[?1049h\x1b[?25l\x1b[?7l";
constexpr std::string_view leave = "\x1b[?7h\x1b[?25h\x1b[?1049l";
constexpr std::string_view reset = "\x1b[0m";

}  // namespace

void WatchDisplay::take() {
  terminal_.makeRaw();
  isTaken_ = true;
  queue_.append(enter);
  forget();
}

void WatchDisplay::giveBack() {
  if (!isTaken_) return;
  isTaken_ = false;
  terminal_.writeAll(queue_.text(), standstill);
  queue_.clear();
  terminal_.writeAll(isColored_ ? std::string(reset) + std::string(leave) : std::string(leave), standstill);
  terminal_.restore();
}

void WatchDisplay::forget() {
  drawn_.clear();
  isClear_ = false;
}

std::string_view WatchDisplay::rendition(const WatchLine& line) const {
  if (!isColored_) return "";
  switch (line.look) {
    case WatchLine::Look::plain:
      return line.isSelected ? "\x1b[7m" : "";
    case WatchLine::Look::title:
      return "\x1b[1m";
    case WatchLine::Look::heading:
      return "\x1b[4m";
    case WatchLine::Look::answer:
      return line.isSelected ? "\x1b[1;31;7m" : "\x1b[1;31m";
    case WatchLine::Look::unread:
      return line.isSelected ? "\x1b[33;7m" : "\x1b[33m";
    case WatchLine::Look::faint:
      return line.isSelected ? "\x1b[2;7m" : "\x1b[2m";
  }
  return "";
}

void WatchDisplay::draw(const std::vector<WatchLine>& lines) {
  if (!isTaken_ || wantsWrite()) return;
  if (!isClear_) queue_.append("\x1b[2J");
  isClear_ = true;
  drawn_.resize(lines.size());
  for (std::size_t row = 0; row < lines.size(); ++row) {
    if (lines[row] == drawn_[row]) continue;
    const std::string_view style = rendition(lines[row]);
    queue_.append("\x1b[" + std::to_string(row + 1) + ";1H\x1b[2K");
    queue_.append(style);
    queue_.append(lines[row].text);
    if (!style.empty()) queue_.append(reset);
  }
  drawn_ = lines;
}

bool WatchDisplay::flush() {
  while (!queue_.empty()) {
    const std::ptrdiff_t written = terminal_.write(queue_.view());
    if (written < 0) return false;
    if (written == 0) return true;
    queue_.consume(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace velotide::client
