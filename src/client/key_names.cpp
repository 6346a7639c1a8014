#include "client/key_names.h"

#include <array>
#include <cctype>
#include <utility>

#include "base/utf8.h"
#include "client/control_sequence.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

constexpr auto keys = std::to_array<std::pair<std::string_view, std::string_view>>({
    {"enter", "\r"},    {"tab", "\t"},         {"shift-tab", "\x1b[Z"}, {"escape", "\x1b"},
    {"space", " "},     {"backspace", "\x7f"}, {"delete", "\x1b[3~"},   {"insert", "\x1b[2~"},
    {"up", "\x1b[A"},   {"down", "\x1b[B"},    {"right", "\x1b[C"},     {"left", "\x1b[D"},
    {"home", "\x1b[H"}, {"end", "\x1b[F"},     {"pageup", "\x1b[5~"},   {"pagedown", "\x1b[6~"},
    {"f1", "\x1bOP"},   {"f2", "\x1bOQ"},      {"f3", "\x1bOR"},        {"f4", "\x1bOS"},
    {"f5", "\x1b[15~"}, {"f6", "\x1b[17~"},    {"f7", "\x1b[18~"},      {"f8", "\x1b[19~"},
    {"f9", "\x1b[20~"}, {"f10", "\x1b[21~"},   {"f11", "\x1b[23~"},     {"f12", "\x1b[24~"},
});

std::string lowerCase(std::string_view text) {
  std::string lower;
  for (const char letter : text) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  return lower;
}

std::optional<char> controlByte(std::string_view name) {
  const std::string lower = lowerCase(name);
  std::string_view rest = lower;
  for (const std::string_view prefix : {"ctrl-", "ctrl+", "c-", "^"}) {
    if (!rest.starts_with(prefix) || rest.size() != prefix.size() + 1) continue;
    const char key = static_cast<char>(std::toupper(static_cast<unsigned char>(rest.back())));
    if (key >= '@' && key <= '_') return static_cast<char>(key & 0x1f);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> bytesOfKey(std::string_view name) {
  if (const std::optional<char> byte = controlByte(name)) return std::string(1, *byte);
  if (lowerCase(name).starts_with("alt-")) {
    // The keys that send a sequence of their own have another one with Alt.
    const std::optional<std::string> key = bytesOfKey(name.substr(4));
    return key && !key->starts_with('\x1b') ? std::optional("\x1b" + *key) : std::nullopt;
  }
  for (const auto& [known, bytes] : keys) {
    if (known == lowerCase(name)) return std::string(bytes);
  }
  std::string_view behind = name;
  if (!behind.empty()) takeFirstScalar(behind);
  return !name.empty() && behind.empty() ? std::optional(std::string(name)) : std::nullopt;
}

std::string applicationForm(std::string key) {
  constexpr std::string_view cursorKeys = "ABCDHF";
  const bool isCursorKey =
      key.size() == 3 && key.starts_with("\x1b[") && cursorKeys.find(key.back()) != std::string_view::npos;
  if (isCursorKey) key[1] = 'O';
  return key;
}

DetachKey DetachKey::named(std::string_view name) {
  DetachKey key;
  if (lowerCase(name) == "none") return key;
  key.byte_ = controlByte(name);
  if (!key.byte_)
    throw Trouble(std::string(name) + " cannot be the detach key. Name one like ctrl-\\ or ctrl-g, or none.",
                  ExitStatus::usage);
  key.name_ = std::string("Ctrl-") + static_cast<char>(*key.byte_ | 0x40);
  return key;
}

bool DetachKey::isSequence(std::string_view sequence) const {
  const std::optional<ControlSequence> control = ControlSequence::parse(sequence);
  if (!byte_ || !control || control->prefix != 0) return false;
  const bool isKittyForm = control->final == 'u';
  const bool isOlderForm =
      control->final == '~' && control->parameter(0) == 27 && control->parameters.size() == 3;
  if (!isKittyForm && !isOlderForm) return false;
  // Behind the colon stands what happened to the key; 3 is its release.
  if (sequence.find(":3") != std::string_view::npos) return false;
  constexpr int locks = 64 | 128;
  const int modifiers = (control->parameter(1, 1) - 1) & ~locks;
  const int code = isKittyForm ? control->parameter(0) : control->parameter(2);
  return modifiers == 4 && code < 128 && (code & 0x1f) == *byte_ && code >= '@';
}

}  // namespace velotide::client
