#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>

namespace velotide {

// Walks over the names in a directory a few at a time, round after round: a turn begins where the last one
// stopped, so that names which stay cannot hide others for ever. The directory stays open between turns,
// which makes a turn over an empty one cheap. It may vanish and be replaced at any time: each turn looks at
// what has its path then.
class DirectoryWalk {
 public:
  explicit DirectoryWalk(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }

  // Begins a turn of at most `entries` entries, "." and ".." included, which ends with the directory at the
  // latest. False when there is no directory (a link is none).
  bool beginTurn(std::size_t entries);
  // The next name of this turn, valid until the next call; null at its end.
  const char* next();
  // Whether the last turn came to the end of the directory, so that the next one begins a round.
  bool isAround() const { return isAround_; }

  // For calls relative to the directory; valid during a turn.
  int descriptor() const { return ::dirfd(stream_.get()); }

 private:
  struct Closer {
    void operator()(DIR* stream) const { ::closedir(stream); }
  };

  bool open();
  bool isCurrent() const;

  const std::string path_;
  std::unique_ptr<DIR, Closer> stream_;
  dev_t device_ = 0;
  ino_t node_ = 0;
  std::size_t remaining_ = 0;
  bool isAround_ = true;
};

}  // namespace velotide
