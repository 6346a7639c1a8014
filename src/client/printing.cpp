#include "client/printing.h"

#include <errno.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "client/notices.h"
#include "client/trouble.h"

namespace velotide::client {

void print(ByteView bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
    if (written > 0)
      bytes = bytes.subspan(static_cast<std::size_t>(written));
    else if (written < 0 && errno == EAGAIN)
      waitFor(STDOUT_FILENO, POLLOUT, 1);
    else if (written == 0 || errno != EINTR)
      throw Trouble("Standard output takes no more. Check what it is redirected to.");
  }
}

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
