#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace velotide {

// A fresh private directory with a short path, removed with everything in it.
class TemporaryDirectory {
 public:
  explicit TemporaryDirectory(const std::string& parent = "/tmp") {
    std::string pattern = parent + "/velotide-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary directory");
    path_ = pattern;
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace velotide
