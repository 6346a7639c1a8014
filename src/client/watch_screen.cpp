#include "client/watch_screen.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <numeric>

#include "client/cell_text.h"
#include "client/session_names.h"

namespace velotide::client {

namespace {

// Which lines there is room for beside those of the sessions.
struct Frame {
  explicit Frame(std::size_t rows)
      : hasTitle(rows >= 3), hasHeading(rows >= 6), hasDetail(rows >= 8), hasFooter(rows >= 2) {}

  std::size_t count() const {
    return std::size_t{hasTitle} + std::size_t{hasHeading} + std::size_t{hasDetail} + std::size_t{hasFooter};
  }

  bool hasTitle;
  bool hasHeading;
  bool hasDetail;
  bool hasFooter;
};

enum ColumnIndex { session, attention, attentionAge, agent, agentAge, command, commandAge, directory, count };

struct Column {
  std::string_view heading;
  // What is left of a column when room is short; past that, columns on the right go.
  std::size_t smallest;
  // Cells before it.
  std::size_t gap;
};

constexpr std::array<Column, count> columns = {{
    {"SESSION", 8, 2},
    {"ATTENTION", 9, 2},
    {"", 0, 1},
    {"AGENT", 14, 2},
    {"", 0, 1},
    {"COMMAND", 8, 2},
    {"", 0, 1},
    {"DIRECTORY", 9, 2},
}};

using Cells = std::array<std::string, count>;
using Widths = std::array<std::size_t, count>;

constexpr bool isAge(std::size_t column) { return columns[column].heading.empty(); }

std::string ageOf(const WatchedState& state, Date now) {
  return state.since ? shortDuration(now - *state.since) : "";
}

Cells cellsOfRow(const WatchedSession& row, Date now) {
  const auto orDash = [](const std::string& text) { return text.empty() ? "-" : text; };
  return {
      shortName(row.id),     orDash(row.attention.text), ageOf(row.attention, now), orDash(row.agent.text),
      ageOf(row.agent, now), row.command.text,           ageOf(row.command, now),   row.directory};
}

Widths widthsFor(const std::vector<Cells>& table, std::size_t room) {
  Widths widths{};
  std::size_t needed = 0;
  for (std::size_t column = 0; column < count; ++column) {
    widths[column] = columns[column].heading.size();
    for (const Cells& cells : table) widths[column] = std::max(widths[column], cellsOf(cells[column]));
    // So that nothing moves when the first age comes or one grows a digit.
    if (isAge(column)) widths[column] = std::max<std::size_t>(widths[column], 3);
    needed += columns[column].gap + widths[column];
  }
  // From the right, as the places on the right are told in full below the table.
  for (std::size_t column = count; column-- > 0 && needed > room;) {
    const std::size_t spare =
        isAge(column) ? 0 : widths[column] - std::min(widths[column], columns[column].smallest);
    const std::size_t taken = std::min(spare, needed - room);
    widths[column] -= taken;
    needed -= taken;
  }
  return widths;
}

// The marks say without colour what colours say.
std::string marksOf(const WatchedSession& row, bool isSelected) {
  const char urgency = row.urgency == WatchedSession::Urgency::answer   ? '!'
                       : row.urgency == WatchedSession::Urgency::unread ? '*'
                                                                        : ' ';
  return std::string(isSelected ? ">" : " ") + urgency;
}

std::string composeRow(std::string line, const Cells& cells, const Widths& widths, std::size_t room) {
  // The marks stand in the gap before the first column.
  std::size_t used = columns[0].gap;
  for (std::size_t column = 0; column < count; ++column) {
    const std::size_t gap = column == 0 ? 0 : columns[column].gap;
    if (used + gap >= room) break;
    const std::size_t width = std::min(widths[column], room - used - gap);
    line.append(gap, ' ');
    if (isAge(column)) {
      if (width < widths[column]) break;
      line += alignRight(cells[column], width);
    } else {
      // The end of a path tells more than its beginning.
      line += alignLeft(column == directory ? keepEnd(cells[column], width) : cells[column], width);
    }
    used += gap + width;
  }
  return keepBeginning(line, room);
}

// The first text that fits.
std::string fitting(std::initializer_list<std::string> texts, std::size_t room) {
  for (const std::string& text : texts) {
    if (cellsOf(text) <= room) return text;
  }
  return keepBeginning(*(texts.end() - 1), room);
}

std::string plural(std::size_t number, const std::string& one, const std::string& several) {
  return std::to_string(number) + " " + (number == 1 ? one : several);
}

std::string titleOf(const std::vector<WatchedSession>& rows, std::size_t selected, const WatchView& view,
                    std::size_t shown, std::size_t room) {
  const auto having = [&](WatchedSession::Urgency urgency) {
    return static_cast<std::size_t>(std::count_if(
        rows.begin(), rows.end(), [&](const WatchedSession& row) { return row.urgency == urgency; }));
  };
  const std::size_t answers = having(WatchedSession::Urgency::answer);
  const std::size_t unread = having(WatchedSession::Urgency::unread);
  std::string full = "velotide: " + plural(rows.size(), "session", "sessions");
  if (answers > 0) full += ", " + plural(answers, "needs an answer", "need an answer");
  if (unread > 0) full += ", " + std::to_string(unread) + " with news";
  std::string brief =
      std::to_string(rows.size()) + ": " + std::to_string(answers) + "! " + std::to_string(unread) + "*";
  if (rows.size() > shown) {
    const std::string place = std::to_string(selected + 1) + "/" + std::to_string(rows.size());
    full += " (" + place + ")";
    brief = place + " " + brief;
  }
  if (!view.trouble.empty()) return fitting({view.trouble + " (" + full + ")", view.trouble}, room);
  return fitting({full, brief}, room);
}

std::string footerOf(const WatchView& view, bool isEmpty, std::size_t room) {
  if (view.asksToClose && view.selected) {
    const std::string name = shortName(*view.selected);
    return fitting({"Close " + name + " and end its program? y closes, any other key keeps it.",
                    "Close " + name + "? y/n", "Close? y/n"},
                   room);
  }
  if (!view.message.empty()) return keepBeginning(view.message, room);
  if (isEmpty) return fitting({"q quit"}, room);
  return fitting({"enter attach  a acknowledge  x close  up/down move  q quit",
                  "enter attach  a ack  x close  q quit", "a ack x close q quit", "q quit"},
                 room);
}

WatchLine::Look lookOf(const WatchedSession& row) {
  switch (row.urgency) {
    case WatchedSession::Urgency::answer:
      return WatchLine::Look::answer;
    case WatchedSession::Urgency::unread:
      return WatchLine::Look::unread;
    case WatchedSession::Urgency::none:
      return row.isRunning ? WatchLine::Look::plain : WatchLine::Look::faint;
  }
  return WatchLine::Look::plain;
}

void addRows(std::vector<WatchLine>& lines, const std::vector<WatchedSession>& rows, std::size_t selected,
             const Frame& frame, WindowSize size, Date now) {
  const auto room = static_cast<std::size_t>(size.columns);
  // Of all sessions, so that nothing moves from page to page.
  std::vector<Cells> table;
  for (const WatchedSession& row : rows) table.push_back(cellsOfRow(row, now));
  const Widths widths = widthsFor(table, room);
  if (frame.hasHeading) {
    Cells headings;
    for (std::size_t column = 0; column < count; ++column) headings[column] = columns[column].heading;
    lines.push_back({composeRow("  ", headings, widths, room), WatchLine::Look::heading, false});
  }
  const std::size_t shown = pageRows(size);
  const std::size_t top = selected / shown * shown;
  for (std::size_t index = top; index < std::min(top + shown, rows.size()); ++index) {
    const bool isSelected = index == selected;
    lines.push_back({composeRow(marksOf(rows[index], isSelected), table[index], widths, room),
                     lookOf(rows[index]), isSelected});
  }
}

}  // namespace

std::string shortDuration(Seconds length) {
  const auto seconds = static_cast<std::int64_t>(std::clamp(std::floor(length), 0.0, 999.0 * 86400));
  if (seconds < 60) return std::to_string(seconds) + "s";
  if (seconds < 3600) return std::to_string(seconds / 60) + "m";
  if (seconds < 2 * 86400) return std::to_string(seconds / 3600) + "h";
  return std::to_string(seconds / 86400) + "d";
}

std::size_t pageRows(WindowSize size) {
  const auto rows = static_cast<std::size_t>(std::max<std::int64_t>(size.rows, 1));
  return rows - Frame(rows).count();
}

std::vector<WatchLine> layOut(const std::vector<WatchedSession>& rows, const WatchView& view, WindowSize size,
                              Date now) {
  const auto room = static_cast<std::size_t>(std::max<std::int64_t>(size.columns, 1));
  const auto height = static_cast<std::size_t>(std::max<std::int64_t>(size.rows, 1));
  const Frame frame(height);
  const auto found = std::find_if(rows.begin(), rows.end(),
                                  [&](const WatchedSession& row) { return row.id == view.selected; });
  const std::size_t selected = found == rows.end() ? 0 : static_cast<std::size_t>(found - rows.begin());
  std::vector<WatchLine> lines;
  if (frame.hasTitle)
    lines.push_back({titleOf(rows, selected, view, pageRows(size), room), WatchLine::Look::title, false});
  if (rows.empty())
    lines.push_back(
        {fitting({"No sessions. Start one in another terminal: velotide new", "No sessions."}, room),
         WatchLine::Look::plain, false});
  else
    addRows(lines, rows, selected, frame, size, now);
  lines.resize(height - std::size_t{frame.hasDetail} - std::size_t{frame.hasFooter});
  if (frame.hasDetail) {
    const std::string detail = found == rows.end() ? "" : shortName(found->id) + ": " + found->detail + ", ";
    // The place takes what the rest leaves; the table may have had no room for it.
    const std::size_t left = room - std::min(room, cellsOf(detail));
    lines.push_back(
        {keepBeginning(detail, room) + (found == rows.end() ? "" : keepEnd(found->directory, left)),
         WatchLine::Look::faint, false});
  }
  if (frame.hasFooter) lines.push_back({footerOf(view, rows.empty(), room), WatchLine::Look::title, false});
  return lines;
}

}  // namespace velotide::client
