#pragma once

#include "client/key_names.h"
#include "client/service.h"

namespace velotide::client {

struct AttachWish {
  DetachKey detachKey;
  // The session was made for this: all its output is news to the terminal, and its questions want answers.
  bool isNew = false;
  // Say how to leave, and in the end why it ended.
  bool isAnnounced = true;
};

// Connects this terminal with the session until the program ends or one of both goes, and answers with the
// exit status: the program's if it ended, 0 when detached, 128 and the number of a signal, and
// ExitStatus::ownFailure when the program's is not known. Throws Trouble, never with the terminal raw.
int attach(Service& service, const TerminalRuntimeSessionInfo& session, const AttachWish& wish);

// Throws Trouble when this process runs inside that session, where its output would feed itself.
void refuseOwnSession(const Uuid& session);

}  // namespace velotide::client
