#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/time.h"
#include "base/uuid.h"
#include "client/local_terminal.h"
#include "client/watched_sessions.h"

namespace velotide::client {

// What the person chose and is told.
struct WatchView {
  std::optional<Uuid> selected;
  // Asked before the selected session is closed.
  bool asksToClose = false;
  // Instead of the keys.
  std::string message;
  // Why what is shown may be old; empty when it is not.
  std::string trouble;
};

// One line of the screen. `look` may add emphasis; the text alone says everything.
struct WatchLine {
  enum class Look { plain, title, heading, answer, unread, faint };

  std::string text;
  Look look = Look::plain;
  bool isSelected = false;

  bool operator==(const WatchLine&) const = default;
};

// How long something lasts, at most four cells: "42s", "3m", "2h", "5d".
std::string shortDuration(Seconds length);

// All lines of a screen of that size, top to bottom; none is wider than it. Of more sessions than fit, the
// page with the selected one is shown.
std::vector<WatchLine> layOut(const std::vector<WatchedSession>& rows, const WatchView& view, WindowSize size,
                              Date now);

// How many sessions such a screen shows at once.
std::size_t pageRows(WindowSize size);

}  // namespace velotide::client
