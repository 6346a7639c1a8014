#include <sys/socket.h>
#include <unistd.h>

#include "base/record.h"
#include "chunks.h"
#include "client/agent_event.h"
#include "client/agent_text.h"
#include "client/cell_text.h"
#include "client/connection.h"
#include "client/event_stream.h"
#include "client/session_input.h"
#include "client/trouble.h"
#include "client/watch_screen.h"

using namespace velotide;
using namespace velotide::client;

namespace {

// What a person sees of a response fits the screen and steers nothing.
void show(const TerminalRuntimeResponse& response, WindowSize size) {
  WatchedSessions sessions;
  if (response.sessions) sessions.takeSessions(*response.sessions);
  if (response.session) sessions.takeSessions({*response.session});
  if (response.attention) sessions.takeAttention(*response.attention);
  if (response.events) {
    for (const TerminalSessionEvent& event : response.events->events)
      sessions.noteExit(event.tabID, event.occurredAt);
  }
  WatchView view;
  view.message = shownText(response.error.value_or(""));
  if (!sessions.rows().empty()) view.selected = sessions.rows().back().id;
  const std::vector<WatchLine> lines = layOut(sessions.rows(), view, size, Date{800000000});
  require(lines.size() <= static_cast<std::size_t>(size.rows));
  for (const WatchLine& line : lines) {
    require(shownText(line.text) == line.text);
    require(cellsOf(line.text) <= static_cast<std::size_t>(size.columns));
  }
}

// Answers to a request that is on its way do not lose or double what they do not speak of.
void answer(SessionInput& input, TerminalRuntimeResponse response) {
  const std::size_t before = input.size();
  const auto request = input.next();
  if (!request) return;
  response.id = request->id;
  require(input.isAnsweredBy(response));
  input.accept(response);
  require(input.size() <= before && !input.unanswered());
}

void requireRoundTrip(const TerminalRuntimeResponse& response) {
  ByteQueue frame;
  JsonDocument document;
  require(encodedTransportFrame(response, frame));
  require(decodeResponse(document, frame.mutableText().first(frame.size() - 1)) == response);
}

void receive(const CutStream& input) {
  int ends[2];
  require(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  Connection connection{FileDescriptor(ends[0])};
  const FileDescriptor service(ends[1]);
  SessionInput typed{TerminalRuntimeSessionInfo{}};
  for (const ByteView chunk : input.chunks) {
    require(chunk.empty() || ::write(service.get(), chunk.data(), chunk.size()) > 0);
    connection.receive();
    while (const auto response = connection.next()) {
      requireRoundTrip(*response);
      show(*response, {40 + static_cast<std::int64_t>(input.stream.size() % 60), 5});
      typed.add(SessionInput::Kind::typed, bytesOf("x"));
      answer(typed, *response);
    }
  }
}

// Bytes leave a queue as they came, however many are taken in between; on average a little less than is
// added, so that the queue is rarely empty.
void checkQueue(const std::vector<ByteView>& chunks) {
  ByteQueue queue;
  std::string model;
  for (const ByteView chunk : chunks) {
    if (chunk.empty()) continue;
    for (int times = chunk.front() % 16; times >= 0; --times) {
      queue.append(chunk);
      model += textOf(chunk);
    }
    const std::size_t taken = std::min(chunk.back() * chunk.size() / 18, model.size());
    queue.consume(taken);
    model.erase(0, taken);
    require(queue.text() == model);
  }
}

// What agents hand to their hooks, and points in the log as people write them.
void readPayloads(std::string_view text) {
  for (const auto read : {readClaudeEvent, readCodexEvent}) {
    ByteQueue payload;
    payload.append(text);
    try {
      if (const auto event = payload.empty() ? std::nullopt : read(payload.mutableText())) {
        event->activity();
        event->context();
      }
    } catch (const Trouble&) {
    }
  }
  if (const auto cursor = parseEventCursor(std::string(text)))
    require(parseEventCursor(cursorText(*cursor)) == cursor);
}

}  // namespace

// Whatever comes over the connection to a service: it is a response that can be shown, or plain trouble.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CutStream input({data, size});
  try {
    receive(input);
  } catch (const Trouble&) {
  }
  readPayloads(textOf(input.stream));
  checkQueue(input.chunks);
  return 0;
}
