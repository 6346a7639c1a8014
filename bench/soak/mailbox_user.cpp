#include "soak/mailbox_user.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "end_to_end/json_text.h"
#include "soak/patience.h"

namespace velotide::bench {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds answerPatience = soakPatience;
constexpr std::size_t mostExpected = 100;

std::string contentOf(const std::filesystem::path& path) {
  std::ifstream file(path);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void writeFile(const std::string& path, std::string_view content, mode_t mode) {
  const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
  if (file.get() < 0) failWithErrno(path);
  writeAll(file.get(), content);
}

}  // namespace

MailboxUser::MailboxUser(const ServiceProcess& service, const Fleet& fleet, Tally& tally, std::uint64_t seed)
    : fleet_(fleet),
      tally_(tally),
      random_(seed),
      requests_(service.root() + "/native-tools/requests/"),
      responses_(service.root() + "/native-tools/responses/"),
      contexts_(service.root() + "/native-tools/native-agent-contexts/"),
      control_(freshUuid()) {
  const std::string metadata = contentOf(service.root() + "/native-tools/runtime.json");
  epoch_ = requireText(metadata, "appEpoch");
}

void MailboxUser::act() {
  collect();
  if (expected_.size() < mostExpected) askSomething();
  pause(milliseconds(random_.below(20)));
}

void MailboxUser::rest() {
  cancelAll();
  while (!expected_.empty()) {
    collect();
    pause(milliseconds(5));
  }
}

void MailboxUser::askSomething() {
  switch (random_.below(12)) {
    case 0:
      return cancelAll();
    case 1:
      return cancelOne();
    case 2:
      return putRubbish();
    case 3:
      return bind();
    case 4:
      return ask("list_attention", {}, answerPatience);
    case 5:
      return ask("read_session_events", R"(,"eventLimit":50)", answerPatience);
    case 6:
      return ask("get_agent_state", R"(,"tab":)" + jsonText(randomTab()), answerPatience);
    default:
      return wait();
  }
}

void MailboxUser::ask(const std::string& action, const std::string& fields, milliseconds patience) {
  const std::string id = freshUuid();
  const std::string path = requests_ + id;
  writeFile(path + ".part", R"({"id":)" + jsonText(id) + R"(,"action":)" + jsonText(action) + fields + "}\n",
            0600);
  expected_[id] = {action, action == "wait_session" ? control_ : "", attendedNow() + patience};
  if (::rename((path + ".part").c_str(), (path + ".json").c_str()) != 0) failWithErrno(path);
  ++tally_.letters;
}

std::string MailboxUser::randomTab() {
  const auto member = fleet_.at(random_.below(Fleet::size));
  return member ? member->session.id : freshUuid();
}

void MailboxUser::wait() {
  static constexpr std::array<std::string_view, 5> conditions{
      R"("events")", R"("attention")", R"("outputChanged","revision":1000000000)",
      R"("outputChanged","revision":0)",
      R"("commandFinished","commandID":"B0000000-0000-4000-8000-000000000000")"};
  const std::uint64_t seconds = random_.below(20);
  ask("wait_session",
      R"(,"controlID":)" + jsonText(control_) + R"(,"waitSpec":{"condition":)" +
          std::string(conditions[random_.below(conditions.size())]) + R"(,"after":{"appEpoch":)" +
          jsonText(epoch_) + R"(,"sequence":)" + std::to_string(sequence_) + R"(},"tabID":)" +
          jsonText(randomTab()) + R"(,"timeoutSeconds":)" + std::to_string(seconds) + "}",
      std::chrono::seconds(seconds) + answerPatience);
}

void MailboxUser::cancelOne() {
  for (const auto& [id, expected] : expected_) {
    if (expected.control.empty()) continue;
    return ask("cancel_wait",
               R"(,"controlID":)" + jsonText(expected.control) + R"(,"waitID":)" + jsonText(id),
               answerPatience);
  }
}

// Afterwards the service remembers the owner as gone: the next waits are another one's.
void MailboxUser::cancelAll() {
  ask("cancel_all_waits", R"(,"controlID":)" + jsonText(control_), answerPatience);
  control_ = freshUuid();
}

// Through the file that a program in the session would be led to.
void MailboxUser::bind() {
  std::uint64_t skipped = random_.below(Fleet::size);
  std::error_code gone;
  for (const auto& entry : std::filesystem::directory_iterator(contexts_, gone)) {
    if (skipped-- > 0) continue;
    const std::string context = contentOf(entry.path());
    const auto tab = findText(context, "tabID");
    const auto token = findText(context, "token");
    if (!tab || !token) return;
    for (std::size_t place = Fleet::echoing | 1; place < Fleet::size; place += 2) {
      const auto member = fleet_.at(place);
      if (!member || member->session.id != *tab) continue;
      return ask(
          "bind_native_agent",
          R"(,"agentKind":"tesseral","tab":)" + jsonText(*tab) + R"(,"nativeAgentToken":)" + jsonText(*token),
          answerPatience);
    }
    return;
  }
}

void MailboxUser::putRubbish() {
  const std::string path = requests_ + freshUuid() + ".json";
  switch (random_.below(6)) {
    case 0:
      return writeFile(path, "no request", 0600);
    case 1:
      return writeFile(path, R"({"id":"B0000000-0000-4000-8000-000000000000","action":"list_attention"})",
                       0600);
    case 2:
      return writeFile(path, std::string(140'000, '['), 0600);
    case 3:
      ::mkfifo(path.c_str(), 0600);
      return;
    case 4:
      if (::symlink("/etc/hostname", path.c_str()) != 0) failWithErrno(path);
      return;
    default:
      return writeFile(path, "", 0644);
  }
}

// An answer is here for good: one file that appears whole.
void MailboxUser::collect() {
  for (const auto& entry : std::filesystem::directory_iterator(responses_)) {
    if (entry.path().extension() != ".json") continue;
    const std::string answer = contentOf(entry.path());
    check(entry.path().stem(), answer);
    std::filesystem::remove(entry.path());
  }
  for (const auto& [id, expected] : expected_) {
    if (attendedNow() < expected.deadline) continue;
    throw std::runtime_error(expected.action + " " + id + " was not answered in time");
  }
}

void MailboxUser::check(const std::string& id, const std::string& answer) {
  const auto expected = expected_.find(id);
  if (expected == expected_.end()) throw std::runtime_error("an answer that nobody waits for: " + answer);
  const bool isOk = answer.find(R"("ok":true)") != std::string::npos;
  const std::string& action = expected->second.action;
  if (requireText(answer, "id") != id || requireText(answer, "action") != action) {
    throw std::runtime_error("expected the answer to " + action + " " + id + ", seen " + answer);
  }
  if (action == "wait_session") {
    if (!isOk) {
      // There may be more waits of this owner than are allowed.
      if (requireText(answer, "error") != "capacityExceeded")
        throw std::runtime_error("a wait failed: " + answer);
    } else {
      requireText(answer, "outcome");
      ++tally_.waits;
    }
  } else if (!isOk && action != "bind_native_agent" && action != "get_agent_state") {
    throw std::runtime_error("the mailbox refused: " + answer);
  }
  sequence_ = requireNumber(answer, "snapshotSequence");
  expected_.erase(expected);
}

}  // namespace velotide::bench
