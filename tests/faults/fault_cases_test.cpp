#include <errno.h>
#include <signal.h>

#include <thread>

#include "faults/faulty_service.h"

namespace velotide {
namespace {

using faults::Call;
using faults::Fault;

class Faults : public testing::Test {
 protected:
  TerminalRuntimeSessionInfo createSession(const std::string& script = "") {
    return client.ask(script.empty() ? service.creationOfCat() : service.creation(script)).session.value();
  }
  TerminalRuntimeSessionInfo look(const TerminalRuntimeSessionInfo& session) {
    return client.look(session.id).value();
  }
  void close(const TerminalRuntimeSessionInfo& session) {
    EXPECT_TRUE(client.ask(service.make(Action::close, look(session))).ok);
  }
  // Whatever happens, happens in this time.
  void settle() { service.turn(40); }
  // Turns of the idle service that did not sleep, out of a hundred.
  std::size_t busyTurns() {
    const std::size_t before = faults::busyPolls();
    const std::size_t turns = service.turns() + 100;
    service.turnUntil([&] { return service.turns() >= turns; });
    return faults::busyPolls() - before;
  }
  std::size_t contextFiles() const {
    const std::string directory = service.mailbox() + "/native-agent-contexts";
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
  }

  struct Reaper {
    ~Reaper() { reapAll(); }
  } reaper;
  FaultyService service;
  PatientClient client{service};
};

TEST_F(Faults, EachActionIsRefusedWithItsWordAndLeavesNothingBehind) {
  // The request is read, and waited for, by the first call of its kind.
  struct Refusal {
    Action action;
    std::string_view word;
    std::vector<Fault> faults;
  };
  const Refusal refusals[] = {
      {Action::create, "runtime_error", {{Call::mmap, ENOMEM}, {Call::mkdir, ENOSPC}, {Call::lstat, EIO}}},
      {Action::create,
       "runtime_error",
       {{Call::open, EMFILE}, {Call::write, ENOSPC}, {.call = Call::write, .result = 0}}},
      {Action::create, "process_launch_failed", {{Call::pipe, EMFILE}, {Call::forkpty, EAGAIN}}},
      {Action::create, "process_launch_failed", {{Call::fcntl, EBADF}, {Call::read, EIO, 2, 2}}},
      {Action::create, "process_launch_failed", {{Call::poll, ENOMEM, 2, 2}, {Call::poll, 0, 2, 2, 1, 0, 0}}},
      {Action::create, "", {{Call::read, 0, 2, 2, 1, 1}, {Call::poll, EINTR, 2, 5}}},
      {Action::restartExited, "process_launch_failed", {{Call::forkpty, EAGAIN}}},
      {Action::input, "input_echo_changed", {{Call::tcgetattr, EIO}}},
      {Action::input, "write_failed", {{Call::write, EIO, 1, 1}}},
      {Action::input, "", {{Call::write, EINTR, 1, 9}, {Call::write, 0, 1, 9, 1, 0, 0}}},
  };
  const auto running = createSession();
  auto ended = createSession("exit 3");
  service.turnUntil([&] { return !(ended = look(ended)).running; });
  settle();
  const std::size_t contexts = contextFiles();
  const std::size_t descriptors = openDescriptors();
  const auto refuse = [&](Action action, std::string_view word, const Fault& fault) {
    SCOPED_TRACE(testing::Message() << rawWord(action) << " with " << nameOf(fault) << " from no. "
                                    << fault.first);
    auto request = service.everything(action, look(action == Action::restartExited ? ended : running), "\n");
    request.expectedEchoEnabled = true;
    if (action == Action::create) request.sessionID.reset();
    service.turn();
    faults::schedule({fault});
    const auto answer = client.ask(request);
    EXPECT_GT(faults::touched(), 0U);
    faults::schedule({});
    EXPECT_EQ(answer.error.value_or(""), word);
    if (answer.ok && action == Action::create) close(*answer.session);
    settle();
    EXPECT_EQ(contextFiles(), contexts);
    EXPECT_EQ(openDescriptors(), descriptors);
  };
  for (const auto& [action, word, faults] : refusals)
    for (const Fault& fault : faults) refuse(action, word, fault);
  EXPECT_EQ(look(ended).exitStatus, 3) << "a restart that failed leaves the old session";
  EXPECT_TRUE(look(running).running);
}

class LastingFaults : public Faults, public testing::WithParamInterface<Fault> {};

TEST_P(LastingFaults, NeitherSpinNorStopTheService) {
  const auto used = createSession();
  const auto closed = createSession("trap '' HUP; printf ready; exec sleep 1000");
  service.turnUntil([&] { return look(closed).outputOffset == 5U; });
  PatientClient viewer(service);
  viewer.ask(service.make(Action::subscribe, used));
  // Something is asked of every part of the service: answers, terminals, children, the mailbox, the listener.
  client.connection().send(service.typed(used, "typed\n"));
  client.connection().send(service.make(Action::close, closed));
  client.connection().send(service.creationOfCat());
  const auto asked = dropRequest(service.mailbox(), R"("action":"list_attention","schemaVersion":1)");
  faults::schedule({GetParam()});
  PatientClient later(service);
  settle();
  EXPECT_GT(faults::touched(), 0U);
  EXPECT_LT(busyTurns(), 40U);
  if (GetParam().call == Call::accept) {
    EXPECT_FALSE(later.connection().isClosed()) << "it waits until there is a descriptor";
    EXPECT_TRUE(client.ask(service.make(Action::list)).ok) << "the others are served meanwhile";
  }
  if (GetParam().call == Call::unlinkat) {
    EXPECT_FALSE(std::filesystem::exists(service.mailbox() + "/responses/" + asked + ".json"));
  }

  faults::schedule({});
  const auto sessions = later.ask(service.make(Action::list)).sessions.value();
  for (const auto& session : sessions) EXPECT_TRUE(later.ask(service.make(Action::close, session)).ok);
  service.clock.advance(4);
  EXPECT_TRUE(later.ask(service.make(Action::shutdownIfEmpty)).ok);
  service.turnUntil([&] { return !service.isRunning(); });
  // One whose end was never told is nobody's.
  ::kill(closed.pid, SIGKILL);
}

constexpr Fault lasting[] = {
    {Call::accept, EMFILE},     {Call::accept, ENFILE},   {Call::accept, ENOMEM},  {Call::accept, EPERM},
    {Call::getsockopt, ENOMEM}, {Call::fcntl, EBADF},     {Call::open, EMFILE},    {Call::openat, EMFILE},
    {Call::lstat, EIO},         {Call::readdir, EIO},     {Call::unlinkat, EROFS}, {Call::rename, ENOSPC},
    {Call::write, ENOSPC},      {Call::write, EIO},       {Call::send, ENOBUFS},   {Call::send, EPIPE},
    {Call::read, EIO},          {Call::read, ECONNRESET}, {Call::waitpid, ECHILD}, {Call::waitpid, EINVAL},
    {Call::close, EIO},         {Call::forkpty, EAGAIN},  {Call::mmap, ENOMEM},    {Call::unlink, EROFS},
};

INSTANTIATE_TEST_SUITE_P(Calls, LastingFaults, testing::ValuesIn(lasting),
                         [](const auto& tested) { return nameOf(tested.param); });

TEST_F(Faults, AChildThatCannotBeReapedIsKilledAndHoldsNothingButTheEnd) {
  const auto session = createSession("trap '' HUP; printf ready; exec sleep 1000");
  service.turnUntil([&] { return look(session).outputOffset == 5U; });
  faults::schedule({{Call::waitpid, 0, 1, faults::always, 1, 0, 0}});
  close(session);
  EXPECT_TRUE(client.ask(service.make(Action::shutdownIfEmpty)).ok);
  service.clock.advance(3.1);
  settle();
  siginfo_t end{};
  EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(session.pid), &end, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(end.si_status, SIGKILL);
  EXPECT_TRUE(service.isRunning()) << "the child is not reaped";
  EXPECT_TRUE(client.ask(service.make(Action::list)).ok);
  EXPECT_LT(busyTurns(), 5U);
  faults::schedule({});
  service.turnUntil([&] { return !service.isRunning(); });
}

TEST_F(Faults, TheEndOfAChildIsToldBehindWhatItPrintedLast) {
  const auto session = createSession("stty raw -echo; head -c 12000 /dev/zero; exit 5");
  siginfo_t end{};
  EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(session.pid), &end, WEXITED | WNOWAIT), 0);
  service.turnUntil([&] { return !look(session).running; });
  EXPECT_EQ(look(session).outputOffset, 12000U);
}

TEST_F(Faults, OutputIsKeptWhoseTerminalTakesNoMoreInput) {
  const std::string sign = service.root() + "/printed";
  const auto session =
      createSession("stty raw -echo; head -c 12000 /dev/zero; : >" + sign + "; exec sleep 60");
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!std::filesystem::exists(sign) && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  faults::schedule({{Call::write, EAGAIN, 1, 1}, {Call::write, EIO, 2}});
  EXPECT_TRUE(client.ask(service.typed(session, "x")).ok);
  service.turnUntil([&] { return !look(session).running; });
  EXPECT_EQ(look(session).outputOffset, 12000U);
}

TEST_F(Faults, InputThatAProgramDoesNotReadDoesNotKeepTheLoopBusy) {
  const auto session = createSession("stty raw -echo; printf ready; exec sleep 1000");
  service.turnUntil([&] { return look(session).outputOffset == 5U; });
  for (int each = 0; each < 3; ++each) {
    client.ask(service.typed(look(session), std::string(60000, 'x')));
    settle();
  }
  EXPECT_LT(busyTurns(), 5U);
  close(session);
}

TEST_F(Faults, TheServiceGoesOnWithoutItsRootAndLeavesTheNextOneAlone) {
  const auto session = createSession();
  std::filesystem::remove_all(service.root());
  EXPECT_TRUE(client.ask(service.typed(session, "still here\n")).ok);
  service.turnUntil([&] { return look(session).outputOffset == 24U; });
  const auto created = client.ask(service.creationOfCat());
  EXPECT_TRUE(created.ok);
  close(*created.session);
  std::filesystem::remove_all(service.root());
  replacePrivateFile(service.root(), service.root() + ".new", {});
  EXPECT_EQ(client.ask(service.creationOfCat()).error, "runtime_error");
  EXPECT_LT(busyTurns(), 5U);
  std::filesystem::remove(service.root());

  RuntimeServer next(service.root(), service.clock);
  close(session);
  client.ask(service.make(Action::shutdownIfEmpty));
  service.turnUntil([&] { return !service.isRunning(); });
  service.end();
  EXPECT_TRUE(std::filesystem::exists(service.root() + "/runtime.sock"));
}

}  // namespace
}  // namespace velotide
