#include "client/typed_input.h"

#include "client/terminal_questions.h"

namespace velotide::client {

using Kind = SessionInput::Kind;

std::vector<TypedInput::Piece> TypedInput::take(std::string_view bytes, Uptime now) {
  std::vector<Piece> pieces;
  scanner_.scan(
      bytes, [&](std::string_view text) { addText(pieces, text); },
      [&](std::string_view sequence) { addSequence(pieces, sequence); });
  heldUntil_.reset();
  if (!scanner_.held().empty() && scanner_.held().size() < shortestHeld) {
    addText(pieces, scanner_.takeHeld());
  } else if (!scanner_.held().empty()) {
    heldUntil_ = now + holdTime;
  }
  return pieces;
}

std::vector<TypedInput::Piece> TypedInput::expire(Uptime now) {
  std::vector<Piece> pieces;
  if (heldUntil_ && *heldUntil_ <= now) {
    heldUntil_.reset();
    addText(pieces, scanner_.takeHeld());
  }
  return pieces;
}

void TypedInput::addText(std::vector<Piece>& pieces, std::string_view text) {
  if (const std::optional<char> key = detachKey_.byte(); key && !isPasting_ && !wantsDetach_) {
    const std::size_t at = text.find(*key);
    add(pieces, Kind::typed, text.substr(0, at));
    wantsDetach_ = at != std::string_view::npos;
  } else {
    add(pieces, Kind::typed, text);
  }
}

void TypedInput::addSequence(std::vector<Piece>& pieces, std::string_view sequence) {
  if (sequence == "\x1b[200~" || sequence == "\x1b[201~") isPasting_ = sequence == "\x1b[200~";
  if (!isPasting_ && detachKey_.isSequence(sequence)) {
    wantsDetach_ = true;
  } else {
    add(pieces, kindOfSequence(sequence), sequence);
  }
}

void TypedInput::add(std::vector<Piece>& pieces, Kind kind, std::string_view bytes) {
  if (bytes.empty() || wantsDetach_) return;
  if (pieces.empty() || pieces.back().kind != kind || kind == Kind::reply)
    pieces.push_back({kind, std::string(bytes)});
  else
    pieces.back().bytes += bytes;
}

}  // namespace velotide::client
