#include <algorithm>

#include "client/agent_text.h"
#include "client/cell_text.h"
#include "client/commands.h"
#include "client/event_stream.h"
#include "client/printing.h"
#include "client/session_names.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

std::string detailOf(const TerminalSessionEvent& event) {
  if (event.attention)
    return std::string(rawWord(event.attention->kind)) + " " + shortName(event.attention->id);
  if (event.agent) return describeAgent(*event.agent);
  if (event.commandState) return std::string(rawWord(*event.commandState));
  if (event.revision) return std::to_string(*event.revision);
  return "";
}

void printEvent(const TerminalSessionEvent& event, bool asJson) {
  if (asJson) return printJson(event);
  const std::string number = std::to_string(event.cursor.sequence);
  print(localTime(event.occurredAt) + "  " + alignRight(number, std::max<std::size_t>(number.size(), 6)) +
        "  " + shortName(event.tabID) + "  " + alignLeft(rawWord(event.kind), 17) + "  " + detailOf(event) +
        "\n");
}

std::optional<TerminalEventCursor> beginning(const std::string& text) {
  if (text.empty()) return std::nullopt;
  const std::optional<TerminalEventCursor> cursor = parseEventCursor(text);
  if (!cursor)
    throw Trouble("\"" + text + "\" is no cursor. Give EPOCH:SEQUENCE, as --show-cursor prints it.",
                  ExitStatus::usage);
  return cursor;
}

// Prints what comes next. False when there was nothing.
bool printNext(EventStream& stream, const Notices& notices, bool asJson) {
  const std::vector<TerminalSessionEvent> events = stream.read();
  if (const std::uint64_t missed = stream.takeMissed(); missed > 0)
    notices.error(std::to_string(missed) + " events came faster than they were read and were dropped.");
  for (const TerminalSessionEvent& event : events) printEvent(event, asJson);
  return !events.empty();
}

void followEvents(EventStream& stream, const Notices& notices, bool asJson) {
  SignalPipe signals({SIGINT, SIGTERM, SIGHUP});
  const PrintingUntilSignal printing(signals);
  do {
    printNext(stream, notices, asJson);
  } while (stream.pause(signals));
}

void printHeld(EventStream& stream, const Notices& notices, bool asJson) {
  bool isAny = false;
  do {
    isAny = printNext(stream, notices, asJson) || isAny;
  } while (!stream.isThrough());
  if (asJson && !isAny) print("[]\n");
}

}  // namespace

int readEvents(Service& service, const EventOptions& options) {
  EventStream stream(service, beginning(options.after));
  (options.follows ? followEvents : printHeld)(stream, service.notices(), options.asJson);
  if (options.showsCursor) service.notices().error("cursor " + cursorText(stream.cursor()));
  return ExitStatus::success;
}

}  // namespace velotide::client
