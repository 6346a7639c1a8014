#pragma once

#include <string>

#include "client/connection.h"

namespace velotide::client {

// The directory through which a service is reached: its socket and the key that proves who asks.
class ServiceRoot {
 public:
  // The absolute path of the directory that `option` names, or else VELOTIDE_ROOT, or else "velotide" in
  // XDG_RUNTIME_DIR, or else ".local/state/velotide" in the home directory. Throws Trouble.
  static ServiceRoot find(const std::string& option);

  const std::string& path() const { return path_; }

  // Throws Trouble, by cause: nothing runs there (ExitStatus::notRunning), a stale socket (the same), a
  // directory, key or service that is not this user's.
  Connection connect() const;
  std::string capability() const;

  // Throws Trouble when the directory exists and a service would refuse it.
  void check() const;

  // Throws the Trouble that nothing runs there.
  [[noreturn]] void failNotRunning() const;

 private:
  explicit ServiceRoot(std::string path) : path_(std::move(path)) {}

  std::string path_;
};

}  // namespace velotide::client
