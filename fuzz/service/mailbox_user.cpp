#include "service/mailbox_user.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#include "base/byte_queue.h"
#include "base/private_files.h"
#include "base/record.h"
#include "chunks.h"

namespace velotide {

void MailboxUser::drop(const RuntimeNativeRequest& request) {
  ByteQueue text;
  require(encodeText(text, request));
  if (!request.noResponse.value_or(false)) unanswered_[request.id] = request.action;
  write(request.id, text.text());
}

void MailboxUser::dropRaw(std::string_view content) { write(Uuid::random().text(), content); }

void MailboxUser::write(const std::string& id, std::string_view content) {
  ++dropped_;
  writeAll(createPrivateFile(root_ + "/requests/" + id + ".json").get(), bytesOf(content));
}

void MailboxUser::collect() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(root_ + "/responses"))
    names.push_back(entry.path().filename());
  for (const std::string& name : names) take(name);
}

void MailboxUser::take(const std::string& name) {
  const std::string path = root_ + "/responses/" + name;
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  require(isPrivateFile(file.get()));
  ByteQueue text;
  for (ssize_t count; (count = ::read(file.get(), text.reserve(65536).data(), 65536)) > 0;) {
    text.commit(static_cast<std::size_t>(count));
  }
  ::unlink(path.c_str());
  const auto response = decodeText<RuntimeNativeResponse>(document_, text.mutableText());
  require(response && name == response->id + ".json");
  const auto asked = unanswered_.extract(response->id);
  require(!asked.empty() && asked.mapped() == response->action && response->ok == !response->error);
  const bool isWait = response->action == rawWord(RuntimeNativeAction::waitSession);
  require(response->waitResult.has_value() == (isWait && response->ok));
  if (response->waitResult) require(response->waitResult->waitID == response->id);
}

void MailboxUser::requireAllAnswered() const { require(unanswered_.empty()); }

}  // namespace velotide
