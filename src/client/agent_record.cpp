#include "client/agent_record.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <memory>

#include "agents/agent_monitor.h"
#include "base/failure.h"
#include "base/private_files.h"
#include "client/notices.h"
#include "client/private_record.h"

namespace velotide::client {

namespace {

// Directory entries looked at for what sessions left behind.
constexpr int sweptEntries = 512;

bool isOfAnother(const AgentRecord& record, const AgentEvent& event, TerminalAgentKind kind) {
  return record.kind != kind || (record.agentSession && record.agentSession != event.agentSession);
}

bool isLate(const AgentRecord& record, const AgentEvent& event) {
  const bool isOfThisTurn = !record.turn || !event.turn || record.turn == event.turn;
  switch (event.meaning) {
    case AgentEvent::Meaning::sessionBegins:
    case AgentEvent::Meaning::turnBegins:
    case AgentEvent::Meaning::sessionEnds:
      return false;
    case AgentEvent::Meaning::goesOn:
    case AgentEvent::Meaning::blocks:
      return record.isAtRest || !isOfThisTurn;
    case AgentEvent::Meaning::turnEnds:
      return !record.isAtRest && !isOfThisTurn;
  }
  return false;
}

FileDescriptor openLock(const std::string& path) {
  FileDescriptor lock(
      ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!lock.isOpen() || !isPrivateFile(lock.get()))
    throw Trouble(path + " is not yours alone and is not believed. Remove it.");
  return lock;
}

}  // namespace

AgentAnswer answerTo(const AgentEvent& event, TerminalAgentKind kind,
                     const std::optional<AgentRecord>& record, Date now) {
  const bool opens =
      event.meaning == AgentEvent::Meaning::sessionBegins || event.meaning == AgentEvent::Meaning::turnBegins;
  const bool ends = event.meaning == AgentEvent::Meaning::sessionEnds;
  const bool reports = event.activity().has_value();
  const AgentAnswer anew = ends ? AgentAnswer{} : AgentAnswer{true, reports};
  if (!record) return anew;
  if (isOfAnother(*record, event, kind)) {
    // An agent at rest, or one that said nothing for as long as it is believed, stands in nobody's way.
    const bool isFree = !record->grant || record->isLost || record->isAtRest ||
                        now - record->reportedAt >= TerminalAgentMonitor::reportLifetime;
    return opens || isFree ? anew : AgentAnswer{};
  }
  // After its end an agent's late events must not bring it back.
  if (!record->grant) return opens ? anew : AgentAnswer{};
  return {false, reports && !isLate(*record, event)};
}

AgentRecordFile::AgentRecordFile(const AgentContext& context, Seconds limit)
    : directory_(context.records), name_(context.name) {
  try {
    createPrivateDirectory(directory_);
  } catch (const SystemFailure&) {
    throw Trouble(directory_ + " cannot be created. Check who owns it.");
  }
  if (!isPrivateDirectory(directory_))
    throw Trouble(directory_ + " is not yours alone. Close it: chmod 700 " + directory_);
  const bool isFirst = ::access(path(".lock").c_str(), F_OK) != 0;
  lock_ = openLock(path(".lock"));
  const Notices silent(true);
  Patience patience(silent, "other helpers of this session", limit);
  while (::flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) throw Trouble(path(".lock") + " cannot be locked.");
    if (patience.isSpent())
      throw Trouble("Other helpers of this session take too long. Is the service well?");
    patience.pause();
  }
  if (isFirst) sweep(context);
}

std::string AgentRecordFile::path(const char* suffix) const { return directory_ + "/" + name_ + suffix; }

std::optional<AgentRecord> AgentRecordFile::load() const {
  return readPrivateRecord<AgentRecord>(path(".json"));
}

void AgentRecordFile::save(const AgentRecord& record) const {
  ByteQueue content;
  encodeText(content, record);
  try {
    // Left behind by a helper that was killed, if it is there.
    ::unlink(path(".pending").c_str());
    replacePrivateFile(path(".json"), path(".pending"), content.view());
  } catch (const SystemFailure&) {
    throw Trouble(path(".json") + " cannot be written. Check the space and the rights there.");
  }
}

// Removes what sessions left behind that are gone.
void AgentRecordFile::sweep(const AgentContext& context) const {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(directory_.c_str()), ::closedir);
  if (!directory) return;
  for (int count = 0; count < sweptEntries; ++count) {
    const dirent* entry = ::readdir(directory.get());
    if (!entry) return;
    const std::string file = entry->d_name;
    const std::string owner = file.substr(0, file.rfind('.'));
    if (Uuid::parse(owner) && !context.isLive(owner)) ::unlink((directory_ + "/" + file).c_str());
  }
}

}  // namespace velotide::client
