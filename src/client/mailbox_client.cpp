#include "client/mailbox_client.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "base/private_files.h"
#include "client/notices.h"
#include "client/private_record.h"
#include "client/trouble.h"
#include "protocol/limits.h"

namespace velotide::client {

namespace {

[[noreturn]] void failUntrusted(const std::string& path) {
  throw Trouble(path + " is not yours alone, so it is not believed. Find out who made it, and remove it.");
}

}  // namespace

// Short sleeps that grow while nothing happens, with a look now and then whether the service still lives.
struct MailboxClient::Pause {
  static constexpr Seconds shortest = 0.001;
  static constexpr Seconds longest = 0.02;
  static constexpr Seconds checkEvery = 0.5;
  static constexpr int probeEvery = 8;

  explicit Pause(MailboxClient& client) : mailbox(client), checkedAt(now()) {}

  // False when `deadline` has passed or `wakeDescriptor` is readable.
  bool sleep(Uptime deadline, int wakeDescriptor) {
    const Uptime instant = now();
    if (deadline <= instant) return false;
    if (instant - checkedAt > checkEvery) {
      mailbox.checkService();
      // A process that ended and was not collected still has its number; its socket refuses.
      if (++checks % probeEvery == 0) mailbox.root_.connect();
      checkedAt = instant;
    }
    pollfd entry{wakeDescriptor, POLLIN, 0};
    const Seconds span = std::min(length, deadline - instant);
    length = std::min(length * 1.5, longest);
    return ::poll(&entry, 1, static_cast<int>(std::ceil(span * 1000))) <= 0;
  }

  MailboxClient& mailbox;
  Uptime checkedAt;
  int checks = 0;
  Seconds length = shortest;
};

MailboxClient::MailboxClient(const ServiceRoot& root) : root_(root), path_(root.path() + "/native-tools") {
  root_.check();
  for (const char* part : {"", "/requests", "/responses"}) {
    struct stat status {};
    const std::string directory = path_ + part;
    if (::lstat(directory.c_str(), &status) != 0) root_.failNotRunning();
    if (!isPrivateDirectory(directory)) failUntrusted(directory);
  }
  service_ = readMetadata();
  checkService();
}

RuntimeReadOnlyMetadata MailboxClient::readMetadata() const {
  const auto metadata = readPrivateRecord<RuntimeReadOnlyMetadata>(path_ + "/runtime.json");
  if (!metadata) root_.failNotRunning();
  return *metadata;
}

void MailboxClient::checkService() {
  if (::kill(service_.pid, 0) != 0 && errno == ESRCH) root_.failNotRunning();
  if (readMetadata().appEpoch != service_.appEpoch)
    throw Trouble("The service was restarted meanwhile, and its sessions are gone. Try again.",
                  ExitStatus::notRunning);
}

std::string MailboxClient::requestPath(const std::string& id) const {
  return path_ + "/requests/" + id + ".json";
}

std::string MailboxClient::send(RuntimeNativeRequest request) {
  request.id = Uuid::random().text();
  ByteQueue text;
  if (!encodeText(text, request) || text.size() > TerminalRuntimeLimits::maximumFrameBytes)
    throw Trouble("The request is too long for the mailbox: at most 131072 bytes.", ExitStatus::usage);
  const std::string pending = path_ + "/requests/" + request.id + ".pending";
  try {
    replacePrivateFile(requestPath(request.id), pending, text.view());
  } catch (const SystemFailure& failure) {
    throw Trouble(
        "The mailbox takes no request: " + std::string(std::strerror(static_cast<int>(failure.word))) + ".");
  }
  return request.id;
}

std::optional<MailboxAnswer> MailboxClient::take(const std::string& id) {
  const std::string path = path_ + "/responses/" + id + ".json";
  std::optional<ByteQueue> content = readPrivateFile(path, maximumAnswerBytes);
  if (!content) return std::nullopt;
  ::unlink(path.c_str());
  std::string text(content->text());
  JsonDocument document;
  std::optional<RuntimeNativeResponse> record;
  if (!content->empty()) record = decodeText<RuntimeNativeResponse>(document, content->mutableText());
  if (!record || record->id != id)
    throw Trouble("The service's answer cannot be understood. Compare the versions of client and service.");
  return MailboxAnswer{std::move(text), std::move(*record)};
}

std::optional<MailboxAnswer> MailboxClient::await(const std::string& id, Uptime deadline,
                                                  int wakeDescriptor) {
  Pause pause(*this);
  for (;;) {
    if (std::optional<MailboxAnswer> answer = take(id)) return answer;
    if (!pause.sleep(deadline, wakeDescriptor)) return take(id);
  }
}

bool MailboxClient::awaitTaken(const std::string& id, Uptime deadline, int wakeDescriptor) {
  const std::string path = requestPath(id);
  Pause pause(*this);
  while (::access(path.c_str(), F_OK) == 0) {
    if (!pause.sleep(deadline, wakeDescriptor)) return false;
  }
  return true;
}

bool MailboxClient::withdraw(const std::string& id) { return ::unlink(requestPath(id).c_str()) == 0; }

void MailboxClient::failUnanswered() {
  throw Trouble("The service does not answer through its mailbox. See `velotide status`.");
}

MailboxAnswer MailboxClient::call(RuntimeNativeRequest request, Seconds limit) {
  const std::string id = send(std::move(request));
  if (std::optional<MailboxAnswer> answer = await(id, now() + limit)) return std::move(*answer);
  withdraw(id);
  failUnanswered();
}

void MailboxClient::cancelWait(const std::string& id, const std::string& owner) {
  RuntimeNativeRequest request;
  request.action = rawWord(RuntimeNativeAction::cancelWait);
  request.controlID = owner;
  request.waitID = id;
  request.noResponse = true;
  send(std::move(request));
  constexpr Seconds patience = 2;
  await(id, now() + patience);
}

}  // namespace velotide::client
