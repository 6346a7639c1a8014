#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>

#include "base/byte_queue.h"
#include "protocol/runtime_request.h"
#include "protocol/runtime_response.h"

namespace velotide::client {

// What is on its way into one session: keeps the order, sends one request at a time with what gathered
// meanwhile, and never loses or doubles a byte. Input is refused by the service when its sequence number or
// control epoch is no longer the session's because somebody else typed; it was not written then, so the
// session's state is fetched and exactly that input is sent again.
// A machine: responses and observed states go in, requests come out. Whoever fills it bounds it by `size`.
class SessionInput {
 public:
  enum class Kind {
    typed,
    // A terminal's answer to a program's question. The first answer counts: when somebody else's input came
    // first, it is dropped instead of being sent again.
    reply,
    // An answer of a form that the service accepts from a person only.
    otherReply,
  };

  enum class Outcome {
    fine,
    // Dropped, because an agent (the session's controlOwner) holds control.
    refusedByOwner,
    // The session takes no more right now; `next` has the same input again, to be sent after a pause.
    full,
    // The program has ended, or the session is gone or was restarted; what was queued is dropped.
    ended,
  };

  // `owner` types as an agent that holds control under that name; without one a person types.
  explicit SessionInput(const TerminalRuntimeSessionInfo& session, std::optional<std::string> owner = {});

  void add(Kind kind, ByteView bytes);
  // The first typed input is written only once the terminal echoes nothing.
  void expectNoEcho(bool expects) { expectsNoEcho_ = expects; }

  // Bytes not known to be accepted.
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  // Whether this client's terminal is the one whose answers count: it was typed into last, as far as known.
  bool isAnswering() const { return isAnswering_; }

  // The request to send now, if any; none while one is unanswered.
  std::optional<TerminalRuntimeRequest> next();
  // The unanswered request once more, for a new connection; then it is unanswered still.
  const std::optional<TerminalRuntimeRequest>& unanswered() const { return unanswered_; }
  // Takes the response to a request from `next`; other responses are none of its business.
  bool isAnsweredBy(const TerminalRuntimeResponse& response) const;
  Outcome accept(const TerminalRuntimeResponse& response);

  // The session as some response described it, last seen.
  const TerminalRuntimeSessionInfo& session() const { return session_; }
  void observe(const TerminalRuntimeSessionInfo& session);

 private:
  struct Piece {
    Kind kind;
    ByteQueue bytes;
  };

  TerminalRuntimeRequest inputRequest();
  void dropFront(std::size_t count);
  void clear();
  Outcome refuse(std::string_view word);

  TerminalRuntimeSessionInfo session_;
  std::optional<std::string> owner_;
  // The sequence number that comes next in that control period if nobody else typed.
  Uuid ownEpoch_;
  std::uint64_t ownNext_ = 0;
  std::deque<Piece> pieces_;
  std::size_t size_ = 0;
  std::optional<TerminalRuntimeRequest> unanswered_;
  // How much of the first piece the unanswered request carries.
  std::size_t sent_ = 0;
  bool isStale_ = false;
  bool isAnswering_ = true;
  bool expectsNoEcho_ = false;
};

}  // namespace velotide::client
