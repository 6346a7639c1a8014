#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <set>

#include "faults/faulty_service.h"
#include "protocol/runtime_failure.h"

namespace velotide {
namespace {

using faults::Call;
using faults::Fault;

constexpr Fault plain[] = {
#define VELOTIDE_FAULT_PLAIN(name) {Call::name, EIO},
    VELOTIDE_FAULT_CALLS(VELOTIDE_FAULT_PLAIN)
#undef VELOTIDE_FAULT_PLAIN
};
// What the service tells apart, and calls that do less than was asked.
constexpr Fault special[] = {
    {Call::accept, EINTR},        {Call::accept, ECONNABORTED},
    {Call::flock, EINTR},         {Call::poll, EINTR},
    {Call::read, EINTR},          {Call::send, EINTR},
    {Call::send, EPIPE},          {Call::waitpid, EINTR},
    {Call::waitpid, ECHILD},      {Call::write, EINTR},
    faults::cut(Call::read),      faults::cut(Call::send),
    faults::cut(Call::write),     faults::nothing(Call::waitpid),
    faults::nothing(Call::write),
};

// The words that a failing system may lead to; all others blame the client.
const std::set<std::string> words = {"process_launch_failed", "resize_failed", "runtime_error", "unavailable",
                                     "write_failed"};

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
    EXPECT_TRUE(client_.ask(service_.make(Action::shutdownIfEmpty)).ok);
    service_.turnUntil([&] { return !service_.isRunning(); });
  }

 private:
  // Asks anew until it is granted; nothing where it was refused time and again.
  std::optional<TerminalRuntimeResponse> insist(Action action, std::string_view text = "") {
    for (int attempt = 0; attempt < 3; ++attempt) {
      const TerminalRuntimeRequest request =
          action == Action::create ? service_.creationOfCat() : service_.everything(action, now(), text);
      const TerminalRuntimeResponse answer = client_.ask(request);
      if (answer.ok) return answer;
      EXPECT_TRUE(words.contains(*answer.error)) << rawWord(action) << " was refused with " << *answer.error;
    }
    return std::nullopt;
  }

  TerminalRuntimeSessionInfo now() { return client_.look(session_).value(); }

  bool liveOneSession() {
    const auto created = insist(Action::create);
    if (!created) return false;
    session_ = created->session->id;
    const bool isLived = useSession();
    insist(Action::close);
    EXPECT_FALSE(client_.look(session_));
    return isLived;
  }

  bool useSession() {
    viewer_.ask(service_.make(Action::subscribe, now()));
    if (!insist(Action::input, "one\n") || !awaitOutput("one\r\none\r\n")) return false;
    if (!insist(Action::resize) || !insist(Action::inspectInput)) return false;
    if (!insist(Action::input, "\x04")) return false;
    // A program whose terminal was lost before it read the end of its input never ends by itself.
    int looks = 0;
    service_.turnUntil([&] { return !now().running || (!isOpen() && ++looks > 200); });
    if (now().running) return false;
    return insist(Action::restartExited).has_value();
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
      const std::string response = service_.mailbox() + "/responses/" + id + ".json";
      // Nobody collects it for minutes.
      if (const timespec old[2]{}; ::utimensat(AT_FDCWD, response.c_str(), old, 0) != 0) continue;
      service_.clock.advance(2);
      return service_.turnUntil([&] { return !std::filesystem::exists(response); });
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

void scheduleOnce(Fault way, std::size_t number) {
  way.first = way.last = number;
  faults::schedule({way});
}

void tell(const Fault& way, std::size_t number) {
  SCOPED_TRACE(testing::Message() << nameOf(way) << " at no. " << number);
  const std::size_t before = openDescriptors();
  std::vector<std::string> left;
  bool isThrown = false;
  {
    FaultyService service;
    scheduleOnce(way, number);
    try {
      Story(service).run();
      EXPECT_LT(service.turns(), 3000U);
    } catch (const Failure<RuntimeFailure>& failure) {
      isThrown = true;
      EXPECT_TRUE(way.call == Call::poll && failure.word == RuntimeFailure::unavailable);
    }
    left = litter(service.root());
  }
  EXPECT_EQ(openDescriptors(), before);
  const bool isLiedTo = way.call == Call::waitpid && way.error != 0 && way.error != EINTR;
  EXPECT_TRUE(reapAll() == 0 || isThrown || isLiedTo);
  std::erase_if(left, [](const std::string& path) { return path.ends_with("runtime.sock"); });
  const bool isUnremovable = way.call == Call::unlink || way.call == Call::unlinkat;
  EXPECT_TRUE(left.empty() || isThrown || isUnremovable) << left.front();
}

class Sweep : public testing::TestWithParam<Fault> {};

TEST_P(Sweep, NoSingleFailureStopsTheService) {
  const Fault& way = GetParam();
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
  const Fault& way = GetParam();
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
    scheduleOnce(way, number);
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

const auto nameOfTested = [](const auto& tested) { return nameOf(tested.param); };
INSTANTIATE_TEST_SUITE_P(Plain, Sweep, testing::ValuesIn(plain), nameOfTested);
INSTANTIATE_TEST_SUITE_P(Special, Sweep, testing::ValuesIn(special), nameOfTested);

}  // namespace
}  // namespace velotide
