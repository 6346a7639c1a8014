#include "client/search_path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <string_view>

namespace velotide::client {

namespace {

std::string absolute(const std::string& path) {
  char resolved[PATH_MAX];
  if (path.front() == '/' || !::getcwd(resolved, sizeof resolved)) return path;
  return std::string(resolved) + "/" + path;
}

bool consider(FoundProgram& found, const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return false;
  if (!S_ISREG(status.st_mode) || ::access(path.c_str(), X_OK) != 0) {
    found.isForbidden = true;
    return false;
  }
  found = {absolute(path), false};
  return true;
}

}  // namespace

FoundProgram findProgram(const std::string& name) {
  FoundProgram found;
  if (name.empty()) return found;
  if (name.find('/') != std::string::npos) {
    consider(found, name);
    return found;
  }
  const char* value = std::getenv("PATH");
  std::string_view rest = value ? value : "/usr/local/bin:/usr/bin:/bin";
  for (;;) {
    const std::size_t colon = rest.find(':');
    std::string directory(rest.substr(0, colon));
    if (directory.empty()) directory = ".";
    if (consider(found, directory + "/" + name) || colon == std::string_view::npos) return found;
    rest.remove_prefix(colon + 1);
  }
}

}  // namespace velotide::client
