#include "client/follow.h"

#include <unistd.h>

#include <algorithm>
#include <array>

#include "client/printing.h"
#include "client/trouble.h"

namespace velotide::client {

void follow(SessionLink& link, const std::function<bool()>& hasEnough,
            const std::function<void()>& beforeStop) {
  SignalPipe signals({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP});
  const PrintingUntilSignal printing(signals);
  link.open(signals.descriptor());
  while (!hasEnough()) {
    if (link.ending()) {
      if (link.ending()->kind != SessionEnding::Kind::serviceGone) return;
      throw Trouble("The service is gone, and the session with it.", ExitStatus::notRunning);
    }
    std::array<pollfd, 2> entries = {{{signals.descriptor(), POLLIN, 0}, link.pollEntry()}};
    const std::optional<Uptime> deadline = link.deadline();
    ::poll(entries.data(), entries.size(),
           deadline ? std::max(static_cast<int>((*deadline - now()) * 1000), 0) + 1 : -1);
    for (const int signal : signals.take()) {
      if (signal != SIGTSTP) return;
      beforeStop();
      ::kill(::getpid(), SIGSTOP);
    }
    link.turn(entries[1].revents);
  }
}

}  // namespace velotide::client
