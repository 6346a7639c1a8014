// How a session's output leaves its terminal.
#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "base/fatal.h"
#include "base/system_log.h"
#include "terminal/runtime_session.h"

namespace velotide {

namespace {

constexpr std::size_t chunkBytes = 16384;
// Some systems give no more to a read, whatever it asks for.
constexpr std::size_t mostOfOneRead = 4096;

}  // namespace

void RuntimeSession::readOutput(OutputReading reading) {
  if (!terminal_.isOpen()) return;
  while (reading.bytes > 0) {
    const std::size_t room = std::min(reading.bytes, chunkBytes);
    reading.bytes -= room;
    switch (readChunk(room, reading.atOnce)) {
      case ReadOutcome::output:
        break;
      case ReadOutcome::nothingNow:
        return;
      case ReadOutcome::end:
        // Many programs close their terminal a moment before they end. Closing the other side in that moment
        // would hang them up, and the signal's status would hide their own.
        if (running()) endedTerminal_ = std::move(terminal_);
        terminal_.close();
        if (!running()) finishCommand();
        return;
    }
  }
}

void RuntimeSession::drainOutput(std::size_t bytes) {
  try {
    readOutput({bytes, mostOfOneRead});
  } catch (const Failure<TerminalRuntimeOutputError>&) {
    // The one word that an append throws.
    systemLog("Velotide runtime final output drain failed: offsetOverflow");
  }
}

RuntimeSession::ReadOutcome RuntimeSession::readChunk(std::size_t room, std::size_t atOnce) {
  std::array<std::uint8_t, chunkBytes> buffer;
  std::size_t filled = 0;
  auto outcome = ReadOutcome::output;
  while (outcome == ReadOutcome::output && filled + atOnce <= room) {
    const ssize_t count = ::read(terminal_.get(), buffer.data() + filled, atOnce);
    if (count > 0) {
      filled += static_cast<std::size_t>(count);
    } else if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
      outcome = ReadOutcome::nothingNow;
    } else {
      // A terminal whose other side is gone ends with an error on some systems and with an empty read on
      // others.
      outcome = ReadOutcome::end;
    }
  }
  if (filled > 0) acceptOutput(ByteView(buffer).first(filled));
  return outcome;
}

void RuntimeSession::acceptOutput(ByteView chunk) {
  const std::uint64_t start = journal_.endOffset();
  journal_.append(chunk);
  const Date now = clock_.date();
  acceptBells(chunk, now);
  for (const TerminalRuntimeCommandInfo& command :
       commandLedger_.accept(chunk, start, journal_.generation(), now)) {
    publishCommand(command, now);
  }
  changed();
  increment(outputRevision_);
  events_.publish(id_, TerminalSessionEventKind::outputChanged, now, {.revision = outputRevision_});
}

}  // namespace velotide
