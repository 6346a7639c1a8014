#include "client/attached_screen.h"

#include <utility>

namespace velotide::client {

void AttachedScreen::take() {
  terminal_.makeRaw();
  isTaken_ = true;
}

void AttachedScreen::giveBack() {
  if (!isTaken_) return;
  isTaken_ = false;
  terminal_.writeAll(queue_.text(), standstill);
  queue_.clear();
  // CAN ends what the terminal may still take for an unfinished sequence.
  const std::string cancel = modes_.isBetweenSequences() ? "" : "\x18";
  std::string off = modes_.switchOff();
  // A program that drew over the whole ordinary screen left the cursor anywhere.
  if (modes_.isCursorHidden() && !modes_.isOnAlternateScreen()) off += "\x1b[999;1H";
  terminal_.writeAll(cancel + off, standstill);
  modes_ = {};
  terminal_.restore();
}

void AttachedScreen::show(std::string_view output) {
  if (output.empty()) return;
  modes_.observe(output);
  isMidLine_ = output.back() != '\n';
  queue_.append(output);
  if (!pendingNote_.empty() && modes_.isBetweenSequences()) queue_.append(std::exchange(pendingNote_, {}));
  if (isTaken_) flush();
}

void AttachedScreen::note(std::string_view text) {
  // Saves the cursor and its attributes, and puts them back.
  std::string note =
      "\x1b"
      "7\x1b[1;1H";
  note += LocalTerminal::isColored() ? "\x1b[0;7m " : "\x1b[0m ";
  note += text;
  note +=
      " \x1b[0m\x1b[K\x1b"
      "8";
  if (modes_.isBetweenSequences())
    queue_.append(note);
  else
    pendingNote_ = note;
  if (isTaken_) flush();
}

void AttachedScreen::cutSequence() {
  if (!modes_.isBetweenSequences()) show("\x18");
}

void AttachedScreen::clear() { show("\x1b[2J\x1b[H"); }

bool AttachedScreen::flush() {
  while (!queue_.empty()) {
    const std::ptrdiff_t written = terminal_.write(queue_.view());
    if (written < 0) return false;
    if (written == 0) return true;
    queue_.consume(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace velotide::client
