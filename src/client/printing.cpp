#include "client/printing.h"

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "client/notices.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

// How long who reads may rest once a signal asks to end: what is printed is not cut off for a slow one.
constexpr Seconds lastPatience = 1;

SignalPipe* interrupting = nullptr;

void obeySignals() {
  for (const int signal : interrupting->take()) {
    if (signal != SIGTSTP)
      throw Trouble("Told to end while nobody read what is printed: the end of it may be missing.");
    ::kill(::getpid(), SIGSTOP);
  }
}

void awaitRoom() {
  std::array<pollfd, 2> entries = {
      {{STDOUT_FILENO, POLLOUT, 0}, {interrupting ? interrupting->descriptor() : -1, POLLIN, 0}}};
  while (entries[0].revents == 0) {
    const bool isAny = ::poll(entries.data(), entries.size(), -1) > 0;
    if (!isAny || entries[0].revents != 0) continue;
    if (waitFor(STDOUT_FILENO, POLLOUT, lastPatience)) return;
    obeySignals();
  }
}

}  // namespace

void print(ByteView bytes) {
  while (!bytes.empty()) {
    // More may not find room where there is some.
    const std::size_t most = interrupting ? PIPE_BUF : bytes.size();
    if (interrupting) awaitRoom();
    const ssize_t written = ::write(STDOUT_FILENO, bytes.data(), std::min(bytes.size(), most));
    if (written > 0)
      bytes = bytes.subspan(static_cast<std::size_t>(written));
    else if (written < 0 && errno == EAGAIN)
      awaitRoom();
    else if (written == 0 || errno != EINTR)
      throw Trouble("Standard output takes no more. Check what it is redirected to.");
  }
}

PrintingUntilSignal::PrintingUntilSignal(SignalPipe& signals) { interrupting = &signals; }
PrintingUntilSignal::~PrintingUntilSignal() { interrupting = nullptr; }

void printTable(const std::vector<std::string>& heading, const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const std::string& name : heading) widths.push_back(name.size());
  for (const auto& row : rows) {
    for (std::size_t column = 0; column < row.size(); ++column)
      widths[column] = std::max(widths[column], row[column].size());
  }
  std::string text;
  const auto addRow = [&](const std::vector<std::string>& row) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      text += row[column];
      if (column + 1 < row.size()) text.append(widths[column] - row[column].size() + 2, ' ');
    }
    text += '\n';
  };
  addRow(heading);
  for (const auto& row : rows) addRow(row);
  print(text);
}

void printFields(const std::vector<std::pair<std::string, std::string>>& fields) {
  std::size_t width = 0;
  for (const auto& [name, value] : fields) width = std::max(width, name.size());
  std::string text;
  for (const auto& [name, value] : fields)
    text += name + ":" + std::string(width - name.size() + 1, ' ') + value + '\n';
  print(text);
}

std::string localTime(Date date) {
  const auto seconds = static_cast<time_t>(date.sinceReference + Date::unixReference);
  tm parts{};
  char text[32];
  if (!::localtime_r(&seconds, &parts)) return "";
  return {text, ::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts)};
}

}  // namespace velotide::client
