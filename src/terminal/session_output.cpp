// How a session's output leaves its terminal.
#include <errno.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "base/fatal.h"
#include "base/system_log.h"
#include "terminal/runtime_session.h"

namespace velotide {

namespace {

constexpr std::size_t chunkBytes = 16384;

}  // namespace

void RuntimeSession::readOutput(int reads) {
  if (!terminal_.isOpen()) return;
  for (int count = 0; count < reads; ++count) {
    switch (readChunk()) {
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

void RuntimeSession::drainOutput(int reads) {
  try {
    readOutput(reads);
  } catch (const Failure<TerminalRuntimeOutputError>& failure) {
    systemLog(std::string("Velotide runtime final output drain failed: ") + failure.what());
  }
}

RuntimeSession::ReadOutcome RuntimeSession::readChunk() {
  std::array<std::uint8_t, chunkBytes> buffer;
  const ssize_t count = ::read(terminal_.get(), buffer.data(), buffer.size());
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return ReadOutcome::nothingNow;
  // A terminal whose other side is gone ends with an error on some systems and with an empty read on others.
  if (count <= 0) return ReadOutcome::end;
  acceptOutput(ByteView(buffer).first(static_cast<std::size_t>(count)));
  return ReadOutcome::output;
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
