#include <signal.h>

#include <filesystem>

#include "chunks.h"
#include "script.h"
#include "service/fuzzed_client.h"
#include "service/mailbox_user.h"
#include "service/requests.h"
#include "service/scripted_terminal.h"
#include "service/witness.h"
#include "support/manual_clock.h"
#include "support/temporary_directory.h"

using namespace velotide;

namespace {

constexpr std::size_t maximumClients = 40;
constexpr std::size_t maximumDropped = 200;
constexpr int maximumSteps = 400;
constexpr std::array<Seconds, 8> jumps = {0.01, 1, 3.01, 5.01, 15, 30.1, 60, 120};
constexpr std::array<std::string_view, 12> pieces = {"\x1b]777;Velotide;start=6c73\a",
                                                     "\x1b]777;Velotide;end=0\a",
                                                     "\x1b]777;Velotide;end=1\a",
                                                     "\x1b]777;Velotide;start=\x1b\\",
                                                     "\x1b]777;Velotide;shell=sh\a",
                                                     "\a",
                                                     "error: no\n",
                                                     "\x1b]777;Velo",
                                                     "\x1b]0;t\a",
                                                     "\x18",
                                                     "\x1bP\a",
                                                     "\x1b]777;Velotide;end=130\a"};

std::size_t openDescriptors() {
  const auto entries = std::filesystem::directory_iterator("/dev/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

// A whole service in this process, its clients, tools and programs, and what the script lets them do.
class Play {
 public:
  Play(ByteView input, const std::string& root)
      : script_(input),
        server_(root, clock_),
        witness_(server_),
        mailbox_(server_.state_.nativeRoot()),
        requests_(script_, server_.state_) {}

  void run() {
    for (int step = 0; step < maximumSteps && !script_.isOver() && isRunning_; ++step) {
      const std::uint8_t act = script_.byte();
      perform(act & 0x7F);
      // Else the next thing happens within the same turn.
      if ((act & 0x80) == 0) turn();
    }
    finish();
  }

 private:
  using Programs = std::deque<ScriptedProgram>;

  void turn() {
    if (!isRunning_) return;
    isRunning_ = server_.turn(0);
    witness_.checkBounds();
  }

  void perform(int act) {
    switch (act % 16) {
      case 0:
      case 1:
      case 2:
      case 3:
      case 4:
        return send();
      case 5:
      case 6:
        return print();
      case 7:
        return flood();
      case 8:
        if (FuzzedClient* client = this->client()) client->read();
        return;
      case 9:
        return useMailbox();
      case 10:
        return clock_.advance(script_.pick(jumps));
      case 11:
        return changeProgram();
      case 12:
        return changeClient();
      case 13:
        return mailbox_.collect();
      case 14:
        for (FuzzedClient& client : clients_) client.read();
        return;
      case 15:
        for (std::size_t count = script_.below(8); count > 0; --count) turn();
        return;
    }
  }

  FuzzedClient* client() {
    if (clients_.empty()) clients_.emplace_back(server_.state_.socket.root() + "/runtime.sock");
    FuzzedClient& chosen = clients_[script_.below(clients_.size())];
    if (!chosen.isOpen()) chosen = FuzzedClient(server_.state_.socket.root() + "/runtime.sock");
    return chosen.isOpen() ? &chosen : nullptr;
  }

  ScriptedProgram* program() {
    Programs& programs = ScriptedTerminals::instance().programs;
    return programs.empty()
               ? nullptr
               : &programs[programs.size() - 1 - script_.below(std::min<std::size_t>(programs.size(), 256))];
  }

  void send() {
    FuzzedClient* client = this->client();
    if (client == nullptr) return;
    if (lastRequest_ && script_.rarely()) return client->send(*lastRequest_);
    lastRequest_ = requests_.runtimeRequest();
    client->send(*lastRequest_);
  }

  void print() {
    ScriptedProgram* program = this->program();
    if (program == nullptr) return;
    std::string output;
    for (std::size_t count = 1 + script_.below(8); count > 0; --count) output += script_.pick(pieces);
    output += script_.text();
    program->print(output);
  }

  void flood() {
    ScriptedProgram* program = this->program();
    if (program == nullptr) return;
    std::string output(static_cast<std::size_t>(1 + script_.byte()) * 512, '.');
    for (std::size_t at = 0; at + 8 < output.size(); at += 512) {
      const std::string place = std::to_string(program->printed().size() + at);
      std::copy(place.begin(), place.end(), output.begin() + static_cast<std::ptrdiff_t>(at));
    }
    program->print(output);
  }

  void changeProgram() {
    ScriptedProgram* program = this->program();
    const std::uint8_t change = script_.byte();
    ScriptedTerminals::instance().refusesToStart = (change & 0xF0) == 0xF0;
    if (program == nullptr) return;
    switch (change % 8) {
      case 0:
      case 1:
        return program->end(change >> 3 & 1);
      case 2:
        return program->closeTerminal();
      case 3:
        // Somebody else asks how it ended.
        program->end(0);
        program->isReaped = true;
        return;
      case 4:
        program->status = program->status.value_or(0);
        return;
      case 5:
        program->echoes = !program->echoes;
        return;
      case 6:
        program->ignoresHangUp = !program->ignoresHangUp;
        return;
      case 7:
        program->takeInput();
        return;
    }
  }

  void changeClient() {
    const std::uint8_t change = script_.byte();
    switch (change % 8) {
      case 0:
      case 1:
      case 2:
        if (clients_.size() < maximumClients)
          clients_.emplace_back(server_.state_.socket.root() + "/runtime.sock");
        return;
      default:
        break;
    }
    FuzzedClient* client = this->client();
    if (client == nullptr) return;
    switch (change % 8) {
      case 3:
        return client->close();
      case 4:
        return client->sendRaw(script_.text());
      case 5:
        return client->sendRaw("{\"a\":1}\n");
      case 6:
        return client->sendRaw(std::string(static_cast<std::size_t>(script_.byte()) * 1024, '['));
      case 7:
        client->read(1 + static_cast<std::size_t>(script_.byte()));
        return;
      default:
        return;
    }
  }

  void useMailbox() {
    if (mailbox_.dropped() >= maximumDropped) return;
    if (script_.rarely()) return mailbox_.dropRaw(script_.text());
    mailbox_.drop(requests_.nativeRequest());
  }

  // Everything comes to rest: what was printed has arrived, and what was asked is answered.
  void finish() {
    settle();
    witness_.checkJournals();
    for (FuzzedClient& client : clients_) client.requireUpToDate();
    for (int each = 0; each < 16; ++each) turn();
    clock_.advance(61);
    turn();
    mailbox_.collect();
    if (isRunning_) mailbox_.requireAllAnswered();
  }

  void settle() {
    for (int quiet = 0; quiet < 3 && isRunning_;) {
      const std::uint64_t before = progress();
      turn();
      bool isMoving = false;
      for (FuzzedClient& client : clients_) isMoving |= client.read();
      quiet = isMoving || progress() != before ? 0 : quiet + 1;
    }
  }

  std::uint64_t progress() const {
    std::uint64_t sum = server_.state_.events.sequence();
    for (const auto& [id, session] : server_.state_.sessions) sum += session->journal().endOffset();
    return sum;
  }

  Script script_;
  ManualClock clock_;
  RuntimeServer server_;
  ServiceWitness witness_;
  MailboxUser mailbox_;
  RequestMaker requests_;
  std::deque<FuzzedClient> clients_;
  std::optional<TerminalRuntimeRequest> lastRequest_;
  bool isRunning_ = true;
};

}  // namespace

// Whatever clients, tools, programs and time do to a service: it keeps its bounds, tells each subscriber
// every byte or of the gap, answers each request and each wait once, and leaves nothing open.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const TemporaryDirectory directory(quickestParent());
  [[maybe_unused]] static const auto ignored = ::signal(SIGPIPE, SIG_IGN);
  const std::size_t descriptors = openDescriptors();
  restartEntropy();
  {
    Play play({data, size}, directory.path() + "/root");
    play.run();
  }
  ScriptedTerminals::instance().reset();
  require(openDescriptors() == descriptors);
  return 0;
}
