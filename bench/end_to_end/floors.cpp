#include "end_to_end/floors.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "end_to_end/base64.h"
#include "end_to_end/stream.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

constexpr std::size_t batchBytes = 16384;
constexpr std::string_view lineBegin = R"({"data":")";
constexpr std::string_view lineEnd = "\"}\n";

// Without the deadlines of the rest of this program: a floor does nothing that could be left out, and its
// process is ended from outside.
void pollBare(std::span<pollfd> descriptors) {
  if (::poll(descriptors.data(), static_cast<nfds_t>(descriptors.size()), -1) < 0) failWithErrno("poll");
}

void pollBare(int descriptor) {
  pollfd entry{descriptor, POLLIN, 0};
  pollBare({&entry, 1});
}

// Waits, then takes what is there up to the whole batch: one read of a terminal gives at most about 4 KiB on
// some systems, and the price of a turn is to be paid once for each batch. 0 at the end.
std::size_t readBatch(int terminal, std::span<char> batch) {
  pollBare(terminal);
  std::size_t filled = 0;
  while (filled < batch.size()) {
    const ssize_t count = ::read(terminal, batch.data() + filled, batch.size() - filled);
    if (count <= 0) break;
    filled += static_cast<std::size_t>(count);
  }
  return filled;
}

void makeNonblocking(int descriptor) {
  if (::fcntl(descriptor, F_SETFL, O_NONBLOCK) != 0) failWithErrno("non-blocking terminal");
}

bool copyBatch(int from, int to) {
  std::array<char, batchBytes> batch{};
  const std::size_t count = readSome(from, batch);
  writeAll(to, std::string_view(batch.data(), count));
  return count > 0;
}

}  // namespace

int drainTerminal(int terminal, std::uint64_t textBytes, int report) {
  static std::array<char, batchBytes> batch;
  const std::uint64_t textEnd = readyMark.size() + textBytes;
  std::string trailer;
  makeNonblocking(terminal);
  for (std::uint64_t position = readyMark.size(); trailer.size() < trailerBytes;) {
    const std::size_t count = readBatch(terminal, batch);
    if (count == 0) return 1;
    position += count;
    if (position > textEnd) {
      const std::size_t behind = std::min<std::uint64_t>(count, position - textEnd);
      trailer.append(batch.data() + count - behind, behind);
    }
  }
  writeAll(report, trailer);
  pollBare(report);
  return 0;
}

int relayTerminal(int terminal, int socket) {
  static std::array<char, batchBytes> batch;
  static std::array<char, lineBegin.size() + base64Space(batchBytes) + lineEnd.size()> line;
  lineBegin.copy(line.data(), lineBegin.size());
  makeNonblocking(terminal);
  while (true) {
    const std::size_t count = readBatch(terminal, batch);
    if (count == 0) return 0;
    const auto text = std::span<char>(line).subspan(lineBegin.size());
    const std::size_t length = encodeBase64(std::string_view(batch.data(), count), text);
    lineEnd.copy(text.data() + length, lineEnd.size());
    writeAll(socket, std::string_view(line.data(), lineBegin.size() + length + lineEnd.size()));
  }
}

int relayBothWays(int leftInput, int leftOutput, int rightInput, int rightOutput) {
  std::array<pollfd, 2> sides{pollfd{leftInput, POLLIN, 0}, pollfd{rightInput, POLLIN, 0}};
  while (true) {
    pollBare(sides);
    if (sides[0].revents != 0 && !copyBatch(leftInput, rightOutput)) return 0;
    if (sides[1].revents != 0 && !copyBatch(rightInput, leftOutput)) return 0;
  }
}

}  // namespace velotide::bench
