#include "bridge/mailbox.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string_view>
#include <vector>

#include "base/file_descriptor.h"
#include "base/private_files.h"
#include "base/record.h"
#include "protocol/limits.h"
#include "protocol/runtime_failure.h"

namespace velotide {

namespace {

constexpr std::string_view suffix = ".json";

bool isMessage(std::string_view name) { return name.ends_with(suffix); }

void claim(const std::string& directory) {
  createPrivateDirectory(directory);
  if (!isPrivateDirectory(directory)) throw Failure(RuntimeFailure::invalidCapability);
}

// The names are collected first, because removing while reading makes some file systems skip entries.
void clearLeftovers(const std::string& path) {
  DirectoryWalk directory(path);
  const std::size_t dotEntries = 2;
  if (!directory.beginTurn(Mailbox::maximumLeftovers + 1 + dotEntries)) return;
  std::vector<std::string> leftovers;
  while (const char* name = directory.next()) {
    if (isMessage(name)) leftovers.emplace_back(name);
  }
  for (const std::string& name : leftovers) ::unlinkat(directory.descriptor(), name.c_str(), 0);
  if (leftovers.size() > Mailbox::maximumLeftovers) throw Failure(RuntimeFailure::resourceLimit);
}

void writeFile(const std::string& directory, const std::string& name, ByteView content) {
  replacePrivateFile(directory + "/" + name, directory + "/" + Uuid::random().text() + ".pending", content);
}

// Not a link, which would lead the files astray.
bool isDirectory(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Whether the file of that name is where this request belongs.
bool isNamedAfter(std::string_view name, const RuntimeNativeRequest& request) {
  return Uuid::parse(request.id) && name.substr(0, name.size() - suffix.size()) == request.id;
}

}  // namespace

Mailbox::Mailbox(const std::string& root)
    : root_(root), requests_(root + "/requests"), responses_(root + "/responses") {
  claim(root_);
  claim(requests_.path());
  claim(responses_.path());
  clearLeftovers(requests_.path());
  clearLeftovers(responses_.path());
}

void Mailbox::writeMetadata(const RuntimeReadOnlyMetadata& metadata) {
  outgoing_.clear();
  encodeText(outgoing_, metadata);
  writeFile(root_, "runtime.json", outgoing_.view());
}

void Mailbox::takeRequests(const Perform& perform) {
  if (!requests_.beginTurn(requestEntries)) return;
  while (const char* name = requests_.next()) {
    if (!isMessage(name)) continue;
    if (const std::optional<RuntimeNativeRequest> request = take(name)) perform(*request);
  }
}

std::optional<RuntimeNativeRequest> Mailbox::take(const char* name) {
  std::optional<RuntimeNativeRequest> request;
  if (read(name)) request = decodeText<RuntimeNativeRequest>(document_, incoming_.mutableText());
  // What cannot be removed would come again and again; what is already gone was withdrawn.
  const bool isRemoved = ::unlinkat(requests_.descriptor(), name, 0) == 0;
  if (!isRemoved || !request || !isNamedAfter(name, *request)) return std::nullopt;
  return request;
}

bool Mailbox::read(const char* name) {
  const FileDescriptor file(
      ::openat(requests_.descriptor(), name, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
  if (!file.isOpen() || !isPrivateFile(file.get())) return false;
  incoming_.clear();
  // One byte more than is allowed, to notice that there is more.
  std::span<std::uint8_t> room = incoming_.reserve(TerminalRuntimeLimits::maximumFrameBytes + 1);
  room = room.first(TerminalRuntimeLimits::maximumFrameBytes + 1);
  std::size_t total = 0;
  while (total < room.size()) {
    const ssize_t count = ::read(file.get(), room.data() + total, room.size() - total);
    if (count == 0) break;
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) total += static_cast<std::size_t>(count);
  }
  incoming_.commit(total);
  return total <= TerminalRuntimeLimits::maximumFrameBytes;
}

bool Mailbox::writeResponse(const RuntimeNativeResponse& response) {
  outgoing_.clear();
  if (!encodeText(outgoing_, response)) return false;
  const std::string name = response.id + std::string(suffix);
  if (!isDirectory(responses_.path())) return false;
  try {
    writeFile(responses_.path(), name, outgoing_.view());
  } catch (const SystemFailure&) {
    return false;
  }
  responseOrder_.push_back(name);
  if (responseOrder_.size() > rememberedResponses) {
    ::unlink((responses_.path() + "/" + responseOrder_.front()).c_str());
    responseOrder_.pop_front();
  }
  return true;
}

void Mailbox::removeOldResponses(Date now) {
  // A clock that was set back must not stop the rounds.
  const Seconds pause = now - cleanedAt_;
  if (responses_.isAround() && pause >= 0 && pause < cleanupPause) return;
  cleanedAt_ = now;
  if (!responses_.beginTurn(responseEntries)) return;
  const Seconds unixNow = now.sinceReference + Date::unixReference;
  while (const char* name = responses_.next()) {
    struct stat status {};
    if (isMessage(name) && ::fstatat(responses_.descriptor(), name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        unixNow - static_cast<Seconds>(status.st_mtime) > responseAge) {
      ::unlinkat(responses_.descriptor(), name, 0);
    }
  }
}

}  // namespace velotide
