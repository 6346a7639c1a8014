#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/uuid.h"

namespace velotide {

// How a program inside a session finds the service's mailbox and proves that it runs in that very session: a
// private file, known to the child by its path, that holds a random token. Owned by the session; file and
// token are gone when it is released.
class TerminalNativeAgentContext {
 public:
  // The content of the file.
  struct Descriptor {
    std::int64_t protocolVersion = 1;
    Uuid tabID;
    // Of the mailbox.
    std::string root;
    std::string token;

    bool operator==(const Descriptor&) const = default;
    static void fields(auto& self, auto& visit) {
      visit("protocolVersion", self.protocolVersion);
      visit("tabID", self.tabID);
      visit("root", self.root);
      visit("token", self.token);
    }
  };

  TerminalNativeAgentContext() = default;
  TerminalNativeAgentContext(const TerminalNativeAgentContext&) = delete;
  TerminalNativeAgentContext& operator=(const TerminalNativeAgentContext&) = delete;
  ~TerminalNativeAgentContext() { invalidate(); }

  // Present between prepare and invalidate.
  const std::optional<std::string>& token() const { return token_; }
  const std::optional<std::string>& file() const { return file_; }

  // Writes the file under the absolute path `root` and answers its path; a context that is already prepared
  // stays as it is. Throws SystemFailure, "permission denied" when the directory is not the user's own or
  // the file cannot be created; nothing is then left behind.
  std::string prepare(const Uuid& tabID, const std::string& root);

  // In a time that depends on the lengths alone.
  bool authorizes(const std::optional<std::string>& candidate) const;

  void invalidate();

 private:
  std::optional<std::string> token_;
  std::optional<std::string> file_;
};

}  // namespace velotide
