#include <signal.h>
#include <sys/socket.h>

#include "base/platform.h"
#include "chunks.h"
#include "protocol/transport_frame.h"
#include "script.h"
#include "service/runtime_server.h"
#include "service/scripted_terminal.h"
#include "service/witness.h"
#include "support/manual_clock.h"
#include "support/temporary_directory.h"

using namespace velotide;

namespace {

struct Requests {
  std::vector<TerminalRuntimeRequest> list;
  bool isBroken = false;
};

// The requests in a stream up to the first line that is none.
Requests requestsIn(ByteView stream) {
  Requests requests;
  ByteQueue rest;
  rest.append(stream);
  JsonDocument document;
  for (std::size_t length; (length = rest.text().find('\n')) != std::string_view::npos;) {
    const auto request = decodeRequest(document, rest.mutableText().first(length));
    requests.isBroken = !request;
    if (!request) break;
    requests.list.push_back(*request);
    rest.consume(length + 1);
  }
  return requests;
}

void requireRoundTrip(const TerminalRuntimeRequest& request) {
  ByteQueue frame;
  JsonDocument document;
  require(encodedTransportFrame(request, frame) && frame.text().find('\n') == frame.size() - 1);
  require(decodeRequest(document, frame.mutableText().first(frame.size() - 1)) == request);
}

// The answers among what has arrived, in their order; pushes are left out.
void takeAnswers(int socket, ByteQueue& incoming, std::vector<TerminalRuntimeResponse>& answers) {
  JsonDocument document;
  const ssize_t count = ::recv(socket, incoming.reserve(65536).data(), 65536, MSG_DONTWAIT);
  if (count > 0) incoming.commit(static_cast<std::size_t>(count));
  for (std::size_t length; (length = incoming.text().find('\n')) != std::string_view::npos;) {
    const auto response = decodeResponse(document, incoming.mutableText().first(length));
    require(response.has_value());
    if (response->features) answers.push_back(*response);
    incoming.consume(length + 1);
  }
}

void serve(const CutStream& input, const std::string& root) {
  const ManualClock clock;
  RuntimeServer server(root, clock);
  ServiceWitness witness(server);
  // One that the input can know.
  server.state_.socket.capability_ = "key";
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
  require(platform::connectLocal(socket.get(), root + "/runtime.sock") == 0);

  ByteQueue incoming;
  std::vector<TerminalRuntimeResponse> answers;
  bool isRunning = true;
  const auto turn = [&] {
    isRunning = isRunning && server.turn(0);
    witness.checkBounds();
    takeAnswers(socket.get(), incoming, answers);
  };
  for (const ByteView chunk : input.chunks) {
    platform::sendQuietly(socket.get(), chunk);
    turn();
  }
  for (std::size_t before = 0; isRunning && (answers.size() > before || before == 0); turn()) {
    before = std::max<std::size_t>(answers.size(), 1);
  }
  const auto [requests, isBroken] = requestsIn(input.stream);
  // What is not sent yet when the client is dropped goes with it.
  const bool isDropped = isBroken || !isRunning;
  require(answers.size() <= requests.size() && (isDropped || answers.size() == requests.size()));
  for (std::size_t index = 0; index < answers.size(); ++index) {
    require(answers[index].id == requests[index].id && answers[index].action == requests[index].action);
    requireRoundTrip(requests[index]);
  }
}

}  // namespace

// However a stream is cut, each request in it is answered once, in order, up to the first line that is none.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const TemporaryDirectory directory(quickestParent());
  [[maybe_unused]] static const auto ignored = ::signal(SIGPIPE, SIG_IGN);
  restartEntropy();
  serve(CutStream({data, size}), directory.path() + "/root");
  ScriptedTerminals::instance().reset();
  return 0;
}
