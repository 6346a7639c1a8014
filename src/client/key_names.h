#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velotide::client {

// What pressing a key sends: "ctrl-c" (also "^C", "C-c"), "alt-x", "enter", "tab", "shift-tab", "escape",
// "space", "backspace", "delete", "insert", "up", "down", "left", "right", "home", "end", "pageup",
// "pagedown", "f1" to "f12", or one character.
std::optional<std::string> bytesOfKey(std::string_view name);

// What the same key sends to a program that asked for the cursor keys' application form (mode ?1); it may not
// know them otherwise.
std::string applicationForm(std::string key);

// The one key that leaves an attached session, told apart from what goes to the program.
class DetachKey {
 public:
  // Ctrl with a letter or one of \ ] ^ _ @, or "none". Throws Trouble for anything else.
  static DetachKey named(std::string_view name);

  // Empty for none.
  const std::string& name() const { return name_; }
  // In plain typing, and within a sequence in which terminals report keys on request.
  std::optional<char> byte() const { return byte_; }
  bool isSequence(std::string_view sequence) const;

 private:
  std::optional<char> byte_;
  std::string name_;
};

}  // namespace velotide::client
