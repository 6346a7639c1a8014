#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/time.h"
#include "client/key_names.h"
#include "client/sequence_scanner.h"
#include "client/session_input.h"

namespace velotide::client {

// Takes apart what a terminal sends: what the person typed, the terminal's answers to programs' questions,
// and the detach key. A first ESC is never held; the beginning of what may become an answer is, for 30 ms.
class TypedInput {
 public:
  struct Piece {
    SessionInput::Kind kind;
    std::string bytes;
  };

  explicit TypedInput(DetachKey detachKey) : detachKey_(std::move(detachKey)) {}

  // What `bytes` amount to, in their order. What is typed behind the detach key is dropped.
  std::vector<Piece> take(std::string_view bytes, Uptime now);
  // What was held too long, as typed.
  std::vector<Piece> expire(Uptime now);
  std::optional<Uptime> heldUntil() const { return heldUntil_; }

  bool wantsDetach() const { return wantsDetach_; }

 private:
  static constexpr Seconds holdTime = 0.03;
  // A shorter beginning is as likely a key.
  static constexpr std::size_t shortestHeld = 3;

  void addText(std::vector<Piece>& pieces, std::string_view text);
  void addSequence(std::vector<Piece>& pieces, std::string_view sequence);
  void add(std::vector<Piece>& pieces, SessionInput::Kind kind, std::string_view bytes);

  DetachKey detachKey_;
  SequenceScanner scanner_;
  std::optional<Uptime> heldUntil_;
  bool isPasting_ = false;
  bool wantsDetach_ = false;
};

}  // namespace velotide::client
