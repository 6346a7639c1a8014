#include "agents/native_agent_context.h"

#include <sys/stat.h>
#include <unistd.h>

#include "base/byte_queue.h"
#include "base/failure.h"
#include "base/private_files.h"
#include "base/record.h"
#include "base/system_log.h"
#include "base/token.h"

namespace velotide {

namespace {

FileDescriptor createDescriptorFile(const std::string& path) {
  try {
    return createPrivateFile(path);
  } catch (const SystemFailure&) {
    throw SystemFailure(std::errc::permission_denied);
  }
}

void writeDescriptorFile(const std::string& path, ByteView content) {
  const FileDescriptor file = createDescriptorFile(path);
  try {
    writeAll(file.get(), content);
  } catch (const SystemFailure&) {
    ::unlink(path.c_str());
    throw;
  }
}

}  // namespace

std::string TerminalNativeAgentContext::prepare(const Uuid& tabID, const std::string& root) {
  if (file_ && token_) return *file_;
  const std::string directory = root + "/native-agent-contexts";
  createPrivateDirectory(directory);
  if (!isPrivateDirectory(directory)) throw SystemFailure(std::errc::permission_denied);

  std::string token = makeToken();
  std::string path = directory + "/" + Uuid::random().text() + ".json";
  ByteQueue content;
  encodeText(content, Descriptor{.tabID = tabID, .root = root, .token = token});
  writeDescriptorFile(path, content.view());
  token_ = std::move(token);
  file_ = std::move(path);
  return *file_;
}

bool TerminalNativeAgentContext::authorizes(const std::optional<std::string>& candidate) const {
  return token_ && candidate && equalInConstantTime(*token_, *candidate);
}

void TerminalNativeAgentContext::invalidate() {
  token_.reset();
  if (!file_) return;
  struct stat status {};
  if (::unlink(file_->c_str()) != 0 && ::lstat(file_->c_str(), &status) == 0) {
    systemLog("Velotide could not remove native status context");
  }
  file_.reset();
}

}  // namespace velotide
