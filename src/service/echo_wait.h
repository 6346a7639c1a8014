#pragma once

#include <vector>

#include "base/time.h"
#include "base/uuid.h"

namespace velotide {

// Answers that leave with their echo: the answer to typing is kept back for one turn, so that its client is
// woken once. Terminals that print without end would keep this process, and with it a processor, from the
// program that is about to echo: they wait for the echo, too, unless the last one was waited for in vain.
class EchoWait {
 public:
  // Whose echo an answer waits for; begins anew with each poll and each service of what it found.
  void begin() { sessions_.clear(); }
  void await(const Uuid& session) { sessions_.push_back(session); }

  // How long to poll instead of `milliseconds`.
  int patience(int milliseconds) const;
  // Whether another session's terminal is to wait in this turn, which is noted.
  bool holdsBack(const Uuid& session, Uptime now);

  // The poll found nothing.
  void foundNothing(Uptime now);
  void endTurn(Uptime now);

 private:
  std::vector<Uuid> sessions_;
  // Until then none is held back.
  Uptime resumesAt_;
  bool heldInThisTurn_ = false;
  Uptime heldNoneAt_;
};

}  // namespace velotide
