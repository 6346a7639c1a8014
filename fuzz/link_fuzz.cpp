#include <poll.h>
#include <signal.h>

#include <tuple>

#include "chunks.h"
#include "client/session_link.h"
#include "client/trouble.h"
#include "script.h"
#include "service/runtime_server.h"
#include "service/scripted_terminal.h"
#include "service/witness.h"
#include "support/manual_clock.h"
#include "support/temporary_directory.h"

using namespace velotide;
using client::SessionEnding;
using client::SessionLink;

namespace {

using Action = TerminalRuntimeAction;

constexpr int maximumSteps = 200;
constexpr std::string_view reply = "\x1b[0n";
// What somebody else types; the link's own person types letters in their order.
constexpr char rivalKey = '#';

// One attached session, its program, and others who get in the way.
class Attachment : private SessionLink::Observer {
 public:
  Attachment(ByteView input, const std::string& root)
      : script_(input), server_(root, clock_), witness_(server_) {
    ask(Action::create);
    link_.emplace(service_, *this, server_.state_.sessions.begin()->second->info(), std::nullopt);
  }

  void run() {
    link_->connect();
    for (int step = 0; step < maximumSteps && !script_.isOver(); ++step) {
      const std::uint8_t act = script_.byte();
      perform(act % 16);
      if ((act & 0x40) == 0) turnServer();
      if ((act & 0x80) == 0) turnLink();
    }
    finish();
  }

 private:
  // From a client of its own, without the way through a socket.
  TerminalRuntimeResponse ask(Action action) {
    auto request = TerminalRuntimeRequest::make(action);
    request.capability = server_.state_.socket.capability();
    request.launch.emplace();
    request.launch->executable = request.launch->directory = "/";
    if (const RuntimeSession* session = this->session()) {
      request.sessionID = session->id();
      request.generation = session->journal().generation();
      request.controlEpoch = session->control().epoch();
      request.inputSequence = session->control().nextInputSequence();
    }
    request.owner = "rival";
    request.source = TerminalRuntimeInputSource::human;
    request.data = CarriedBytes(Bytes{rivalKey});
    return server_.dispatch_.perform(request);
  }

  const RuntimeSession* session() const {
    return server_.state_.sessions.empty() ? nullptr : server_.state_.sessions.begin()->second.get();
  }
  ScriptedProgram& program() { return ScriptedTerminals::instance().programs.back(); }

  void perform(int act) {
    switch (act) {
      case 0:
      case 1:
        return type(script_.below(40));
      case 2:
        return type(script_.below(256) * 300);
      case 3:
        return link_->input().add(client::SessionInput::Kind::reply, bytesOf(reply));
      case 4:
      case 5:
        return program().print(script_.text(256));
      case 6:
        return program().print(std::string(script_.below(256) * 512, static_cast<char>('a' + act_++ % 26)));
      case 7:
        ask(Action::input);
        return;
      case 8:
        isLossy_ = true;
        ask(script_.flag() ? Action::acquireControl : Action::releaseControl);
        return;
      case 9:
        for (const auto& [fd, client] : server_.clients_) client->disconnect("cut");
        return;
      case 10:
        return link_->setPaused(script_.flag());
      case 11:
        if (link_->ending()) return;
        expected_ = 0;
        return link_->replay();
      case 12:
        columns_ = 1 + static_cast<std::int64_t>(script_.byte());
        return link_->resize({*columns_, 24});
      case 13:
        received_ += program().takeInput();
        return;
      case 14:
        return changeProgram();
      case 15:
        return clock_.advance(script_.flag() ? 1 : 16);
    }
  }

  void changeProgram() {
    const std::uint8_t change = script_.byte();
    if (change < 0x80) return;
    isLossy_ = true;
    switch (change % 4) {
      case 0:
        return program().end(change >> 4 & 3);
      case 1:
        return program().closeTerminal();
      case 2:
        program().status = 3;
        return;
      case 3:
        ask(Action::close);
        return;
    }
  }

  void type(std::size_t count) {
    std::string text;
    while (text.size() < count) text += static_cast<char>('a' + (typed_.size() + text.size()) % 26);
    typed_ += text;
    link_->input().add(client::SessionInput::Kind::typed, bytesOf(text));
  }

  void turnServer() {
    server_.turn(0);
    witness_.checkBounds();
  }
  void turnLink(int milliseconds = 0) {
    pollfd entry = link_->pollEntry();
    ::poll(&entry, 1, milliseconds);
    link_->turn(entry.revents);
  }

  // What was sent arrives, and what was typed.
  void finish() {
    link_->setPaused(false);
    for (int quiet = 0; quiet < 20 && !link_->ending();) {
      const auto before = std::tuple(received_.size(), expected_, link_->input().size());
      turnServer();
      received_ += program().takeInput();
      // What the link puts off is the only thing that needs real time.
      turnLink(quiet > 0 && link_->deadline() ? 10 : 0);
      const auto after = std::tuple(received_.size(), expected_, link_->input().size());
      quiet = after == before ? quiet + 1 : 0;
    }
    // Of a session that was closed meanwhile the link knows how its program ended, and nothing more comes.
    const bool isClosed =
        !session() || (link_->ending() && link_->ending()->kind != SessionEnding::Kind::exited);
    if (!isClosed) require(expected_ == program().printed().size());
    if (link_->ending() || isLossy_) return;
    require(link_->input().empty());
    require(!columns_ || session()->info().columns == *columns_);
    received_ += program().takeInput();
    for (std::size_t at; (at = received_.find(reply)) != std::string::npos;)
      received_.erase(at, reply.size());
    std::erase(received_, rivalKey);
    require(received_ == typed_);
  }

  void takeOutput(ByteView output, std::uint64_t offset) override {
    require(offset == expected_);
    require(std::string_view(program().printed()).substr(offset, output.size()) == textOf(output));
    expected_ += output.size();
  }
  void missOutput(std::uint64_t bytes) override { expected_ += bytes; }
  void takeState(const TerminalRuntimeSessionInfo&) override {}
  void refuseInput() override { require(isLossy_); }
  void loseConnection() override {}
  void regainConnection() override {}

  // Ends after the server, which otherwise would not take notice while it is waited for.
  std::optional<SessionLink> link_;
  Script script_;
  ManualClock clock_;
  RuntimeServer server_;
  ServiceWitness witness_;
  const client::Notices notices_{true};
  // Waits for no answer: nobody would give it meanwhile.
  client::Service service_{client::ServiceRoot::find(server_.state_.socket.root()), notices_, 0};
  // Where the output that was shown ends.
  std::uint64_t expected_ = 0;
  std::string typed_;
  std::string received_;
  std::optional<std::int64_t> columns_;
  // Something happened at which typing may be lost.
  bool isLossy_ = false;
  int act_ = 0;
};

}  // namespace

// Whatever happens on the way: a link shows every byte of output once and in order, or tells of the gap, and
// brings every byte of typing once and in order, and the last size, to the program.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const TemporaryDirectory directory(quickestParent());
  [[maybe_unused]] static const auto ignored = ::signal(SIGPIPE, SIG_IGN);
  restartEntropy();
  try {
    Attachment({data, size}, directory.path() + "/root").run();
  } catch (const client::Trouble&) {
  }
  ScriptedTerminals::instance().reset();
  return 0;
}
