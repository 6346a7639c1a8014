#include <errno.h>
#include <signal.h>

#include <set>

#include "faults/faulty_service.h"
#include "protocol/runtime_failure.h"

namespace velotide {
namespace {

using faults::Call;
using faults::Fault;

// How a call may fail, and the result it then has where that is not -1.
struct Way {
  Call call;
  int error;
  std::size_t atMost = 0;
  ssize_t result = -1;
};

constexpr Way ways[] = {
    {Call::accept, EINTR},      {Call::accept, ECONNABORTED}, {Call::accept, EMFILE},
    {Call::accept, EPERM},      {Call::bind, EADDRINUSE},     {Call::chmod, EPERM},
    {Call::close, EIO},         {Call::fcntl, EBADF},         {Call::fdopendir, ENOMEM},
    {Call::flock, EWOULDBLOCK}, {Call::flock, EINTR},         {Call::forkpty, EAGAIN},
    {Call::forkpty, ENOENT},    {Call::fstat, EIO},           {Call::fstatat, EIO},
    {Call::getsockopt, ENOMEM}, {Call::ioctl, EIO},           {Call::kill, EPERM},
    {Call::listen, ENOBUFS},    {Call::lstat, EIO},           {Call::mkdir, ENOSPC},
    {Call::mkdir, EACCES},      {Call::mmap, ENOMEM},         {Call::open, EMFILE},
    {Call::open, ENOSPC},       {Call::openat, EMFILE},       {Call::pipe, EMFILE},
    {Call::poll, EINTR},        {Call::poll, ENOMEM},         {Call::read, EINTR},
    {Call::read, EIO},          {Call::read, 0, 1},           {Call::readdir, EIO},
    {Call::rename, ENOSPC},     {Call::send, EINTR},          {Call::send, EPIPE},
    {Call::send, 0, 1},         {Call::socket, EMFILE},       {Call::stat, EIO},
    {Call::tcgetattr, EIO},     {Call::tcgetpgrp, EIO},       {Call::unlink, EROFS},
    {Call::unlinkat, EROFS},    {Call::waitpid, EINTR},       {Call::waitpid, ECHILD},
    {Call::waitpid, 0, 0, 0},   {Call::write, EINTR},         {Call::write, ENOSPC},
    {Call::write, EIO},         {Call::write, 0, 1},          {Call::write, 0, 0, 0},
};

// The words that a failing system may lead to; all others blame the client.
const std::map<Action, std::set<std::string>> refusals = {
    {Action::create, {"process_launch_failed", "runtime_error"}},
    {Action::restartExited, {"process_launch_failed", "runtime_error"}},
    {Action::input, {"write_failed", "unavailable"}},
    {Action::inspectInput, {"unavailable"}},
    {Action::resize, {"resize_failed"}},
};

// One life of a service with one client: everything is asked for until it is granted, and a session that was
// lost is closed and replaced, so that the end is reached whatever befell a single call.
class Story {
 public:
  explicit Story(FaultyService& service) : service_(service), client_(service), viewer_(service) {}

  void run() {
    bool isTold = false;
    for (int session = 0; session < 3 && !isTold; ++session) isTold = liveOneSession();
    EXPECT_TRUE(isTold) << "one session after another was lost";
    useMailbox();
    EXPECT_TRUE(client_.ask(service_.make(Action::diagnostics)).ok);
    insist([&] { return service_.make(Action::shutdownIfEmpty); });
    service_.turnUntil([&] { return !service_.isRunning(); });
  }

 private:
  // Asks anew until it is granted; nothing where it was refused time and again.
  template <typename Make>
  std::optional<TerminalRuntimeResponse> insist(Make make) {
    for (int attempt = 0; attempt < 3; ++attempt) {
      const TerminalRuntimeRequest request = make();
      const TerminalRuntimeResponse answer = client_.ask(request);
      if (answer.ok) return answer;
      const auto allowed = refusals.find(request.action);
      EXPECT_TRUE(allowed != refusals.end() && allowed->second.contains(*answer.error))
          << rawWord(request.action) << " was refused with " << *answer.error;
    }
    return std::nullopt;
  }

  TerminalRuntimeSessionInfo now() { return client_.look(session_).value(); }

  bool liveOneSession() {
    const auto created = insist([&] { return service_.creationOfCat(); });
    if (!created) return false;
    session_ = created->session->id;
    const bool isLived = useSession();
    insist([&] { return service_.make(Action::close, now()); });
    EXPECT_FALSE(client_.look(session_));
    return isLived;
  }

  bool useSession() {
    viewer_.ask(service_.make(Action::subscribe, now()));
    if (!insist([&] { return service_.typed(now(), "one\n"); })) return false;
    if (!awaitOutput("one\r\none\r\n")) return false;
    const auto resized = insist([&] {
      auto request = service_.make(Action::resize, now());
      request.columns = 100;
      request.rows = 30;
      return request;
    });
    if (!resized || !insist([&] { return service_.make(Action::inspectInput, now()); })) return false;
    if (!insist([&] { return service_.typed(now(), "\x04"); })) return false;
    // A program whose terminal was lost before it read the end of its input never ends by itself.
    int looks = 0;
    service_.turnUntil([&] { return !now().running || (!isOpen() && ++looks > 200); });
    if (now().running) return false;
    return insist([&] {
             auto request = service_.make(Action::restartExited, now());
             request.launch = service_.creationOfCat().launch;
             return request;
           })
        .has_value();
  }

  // Whether the terminal is still there.
  bool isOpen() { return client_.ask(service_.make(Action::inspectInput, now())).ok; }

  // False where the terminal was lost first.
  bool awaitOutput(std::string_view text) {
    bool isFound = false;
    service_.turnUntil([&] {
      const auto read = client_.ask(service_.make(Action::read, now()));
      const Bytes data = read.data ? read.data->copy() : Bytes{};
      isFound = textOf(data).find(text) != std::string_view::npos;
      return isFound || !isOpen();
    });
    return isFound;
  }

  // A request whose file could not be read or whose response could not be written is lost: one asks again.
  void useMailbox() {
    for (int attempt = 0; attempt < 3; ++attempt) {
      const std::string id =
          dropRequest(service_.mailbox(), R"("action":"list_attention","schemaVersion":1)");
      const std::string request = service_.mailbox() + "/requests/" + id + ".json";
      service_.turnUntil([&] { return !std::filesystem::exists(request); });
      if (std::filesystem::remove(service_.mailbox() + "/responses/" + id + ".json")) return;
    }
    FAIL() << "three requests in the mailbox were lost";
  }

  FaultyService& service_;
  PatientClient client_;
  PatientClient viewer_;
  Uuid session_ = Uuid::random();
};

// Every file under the root that should not outlive the service.
std::vector<std::string> litter(const std::string& root) {
  std::vector<std::string> found;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    const std::string name = entry.path().filename();
    if (!entry.is_directory() && name != "runtime.lock" && name != "ui-capability" && name != "runtime.json")
      found.push_back(entry.path());
  }
  return found;
}

void tell(const Way& way, std::size_t number) {
  SCOPED_TRACE(testing::Message() << faults::nameOf(way.call) << " no. " << number << " fails with errno "
                                  << way.error << ", at most " << way.atMost << ", result " << way.result);
  const std::size_t before = openDescriptors();
  std::string root;
  std::vector<std::string> left;
  bool isThrown = false;
  {
    FaultyService service;
    root = service.root();
    faults::schedule({{way.call, way.error, number, number, 1, way.atMost, way.result}});
    try {
      Story(service).run();
      EXPECT_LT(service.turns(), 3000U);
    } catch (const Failure<RuntimeFailure>& failure) {
      isThrown = true;
      EXPECT_TRUE(way.call == Call::poll && failure.word == RuntimeFailure::unavailable);
    } catch (const std::exception& failure) {
      ADD_FAILURE() << failure.what();
    }
    left = litter(root);
  }
  EXPECT_EQ(openDescriptors(), before);
  const int children = reapAll();
  const bool isLiedTo = way.call == Call::waitpid && way.error == ECHILD;
  EXPECT_TRUE(children == 0 || isThrown || isLiedTo) << children;
  const bool isUnremovable = way.call == Call::unlink || way.call == Call::unlinkat;
  std::erase_if(left, [](const std::string& path) { return path.ends_with("runtime.sock"); });
  EXPECT_TRUE(left.empty() || isThrown || isUnremovable) << left.front();
}

class Sweep : public testing::TestWithParam<Way> {};

TEST_P(Sweep, NoSingleFailureStopsTheService) {
  const Way& way = GetParam();
  std::size_t calls = 0;
  {
    FaultyService service;
    faults::schedule({});
    Story(service).run();
    calls = faults::count(way.call);
  }
  // A call that is made over and over is failed now and then, and each time towards the end, where children
  // are reaped.
  constexpr std::size_t most = 10, end = 6;
  const std::size_t step = std::max<std::size_t>(1, calls / most);
  for (std::size_t number = 1; number <= calls && !HasFailure(); number += number + end < calls ? step : 1) {
    tell(way, number);
  }
}

TEST_P(Sweep, AStartThatFailedLeavesNothingAndCanBeRepeated) {
  const Way& way = GetParam();
  const TemporaryDirectory directory;
  const std::string root = directory.path() + "/root";
  const ManualClock clock;
  const auto start = [&] {
    const faults::Serving serving;
    const RuntimeServer server(root, clock);
  };
  faults::schedule({});
  start();
  const std::size_t calls = faults::count(way.call);
  const std::size_t before = openDescriptors();
  for (std::size_t number = 1; number <= calls; ++number) {
    faults::schedule({{way.call, way.error, number, number, 1, way.atMost, way.result}});
    try {
      start();
    } catch (const Failure<RuntimeFailure>&) {
    } catch (const SystemFailure&) {
    }
    EXPECT_EQ(openDescriptors(), before) << number;
    const bool isUnremovable = way.call == Call::unlink || way.call == Call::lstat;
    EXPECT_TRUE(isUnremovable || litter(root).empty()) << number << ": " << litter(root).front();
  }
  faults::schedule({});
  EXPECT_NO_THROW(start());
}

INSTANTIATE_TEST_SUITE_P(Calls, Sweep, testing::ValuesIn(ways), [](const auto& tested) {
  const Way& way = tested.param;
  return std::string(faults::nameOf(way.call)) + "_" +
         (way.error != 0   ? ::strerrorname_np(way.error)
          : way.atMost > 0 ? "cut"
                           : "zero");
});

}  // namespace
}  // namespace velotide
