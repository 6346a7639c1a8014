#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "client/attach.h"
#include "client/commands.h"
#include "client/follow.h"
#include "client/printing.h"
#include "client/session_names.h"
#include "client/shown_output.h"
#include "client/trouble.h"

namespace velotide::client {

namespace {

// One line of `read --json`.
struct OutputRecord {
  Uuid session;
  std::optional<CarriedBytes> data;
  std::optional<TerminalRuntimeOutputCursor> cursor;
  // Bytes before `data` that were asked for and are no longer held.
  std::optional<std::uint64_t> missed;
  // "exited", "closed" or "serviceGone", on the last line of what was followed.
  std::optional<std::string> ended;
  std::optional<std::int32_t> exitStatus;

  static void fields(auto& self, auto& visit) {
    visit("session", self.session);
    visit("data", self.data);
    visit("cursor", self.cursor);
    visit("missed", self.missed);
    visit("ended", self.ended);
    visit("exitStatus", self.exitStatus);
  }
};

constexpr std::array endingWords = {"exited", "closed", "serviceGone"};

std::string cursorText(const TerminalRuntimeOutputCursor& cursor) {
  return cursor.generation.text() + ":" + std::to_string(cursor.offset);
}

std::optional<TerminalRuntimeOutputCursor> parseCursor(const std::string& text) {
  const std::size_t colon = text.find(':');
  const std::optional<Uuid> generation = Uuid::parse(text.substr(0, colon));
  TerminalRuntimeOutputCursor cursor;
  if (!generation || colon == std::string::npos) return std::nullopt;
  cursor.generation = *generation;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data() + colon + 1, end, cursor.offset);
  if (result.ec != std::errc() || result.ptr != end || text.back() == ':') return std::nullopt;
  return cursor;
}

// Where the output begins that is asked for.
std::optional<TerminalRuntimeOutputCursor> beginning(const ReadOptions& options,
                                                     const TerminalRuntimeSessionInfo& session) {
  if (options.after.empty()) return std::nullopt;
  const std::optional<TerminalRuntimeOutputCursor> cursor = parseCursor(options.after);
  if (!cursor)
    throw Trouble("--after takes a position as --show-cursor prints it: GENERATION:OFFSET.",
                  ExitStatus::usage);
  if (cursor->generation != session.generation)
    throw Trouble(
        "That position belongs to an earlier run of the session. Leave --after out to read this one.");
  if (cursor->offset > session.outputOffset) throw Trouble(explain("future_cursor"));
  return cursor;
}

// Output on its way to standard output.
class OutputPrinter final : public SessionLink::Observer {
 public:
  OutputPrinter(const Service& service, const ReadOptions& options, const Uuid& session)
      : service_(service),
        options_(options),
        session_(session),
        shown_(options.follows ? ShownOutput::Signals::owners : ShownOutput::Signals::own) {}

  void takeOutput(ByteView output, std::uint64_t offset) override {
    if (options_.asJson) {
      TerminalRuntimeOutputCursor cursor{generation, offset + output.size()};
      printJson(OutputRecord{session_, CarriedBytes(output, {}), cursor, missed_, {}, {}});
      missed_.reset();
    } else {
      shown_.print(output);
    }
  }
  void missOutput(std::uint64_t bytes) override {
    missed_ = bytes;
    if (!options_.asJson)
      service_.notices().note(std::to_string(bytes) +
                              " bytes of output are no longer held and were skipped.");
  }
  void takeState(const TerminalRuntimeSessionInfo& session) override { generation = session.generation; }
  void loseConnection() override { service_.notices().note("connection lost: trying again"); }

  void giveBack() { shown_.giveBack(); }

  // Of the session's output.
  Uuid generation;

 private:
  const Service& service_;
  const ReadOptions& options_;
  const Uuid& session_;
  std::optional<std::uint64_t> missed_;
  ShownOutput shown_;
};

TerminalRuntimeOutputCursor readHeld(Service& service, const TerminalRuntimeSessionInfo& session,
                                     std::optional<TerminalRuntimeOutputCursor> cursor,
                                     OutputPrinter& printer) {
  for (;;) {
    TerminalRuntimeRequest request = Service::about(session, TerminalRuntimeAction::read);
    request.after = cursor;
    const TerminalRuntimeResponse response = service.call(request);
    const ByteView data = response.data.value().head();
    const std::uint64_t begin = response.cursor.value().offset - data.size();
    if (begin > (cursor ? cursor->offset : 0)) printer.missOutput(begin - (cursor ? cursor->offset : 0));
    cursor = response.cursor;
    if (!data.empty()) printer.takeOutput(data, begin);
    // Up to what was there when asked; more is for those who follow.
    if (cursor->offset >= std::min(session.outputOffset, *response.latestOffset) || data.empty())
      return *cursor;
  }
}

void printEnding(const SessionLink& link) {
  const SessionEnding& ending = *link.ending();
  OutputRecord record{
      link.session().id, {}, link.cursor(), {}, endingWords[static_cast<std::size_t>(ending.kind)], {}};
  if (ending.kind == SessionEnding::Kind::exited && ending.status >= 0) record.exitStatus = ending.status;
  printJson(record);
}

TerminalRuntimeOutputCursor readOn(Service& service, const TerminalRuntimeSessionInfo& session,
                                   std::optional<TerminalRuntimeOutputCursor> cursor, OutputPrinter& printer,
                                   bool asJson) {
  // What is printed there would be output again, without end.
  if (::isatty(STDOUT_FILENO) == 1) refuseOwnSession(session.id);
  SessionLink link(service, printer, session, cursor);
  const auto tellEnding = [&] {
    if (asJson && link.ending()) printEnding(link);
    return false;
  };
  follow(link, tellEnding, [&] { printer.giveBack(); });
  return link.cursor().value_or(TerminalRuntimeOutputCursor{session.generation, 0});
}

}  // namespace

int readOutput(Service& service, const ReadOptions& options) {
  const TerminalRuntimeSessionInfo session = findSession(service, options.session);
  const std::optional<TerminalRuntimeOutputCursor> begin = beginning(options, session);
  TerminalRuntimeOutputCursor end;
  {
    OutputPrinter printer(service, options, session.id);
    printer.generation = session.generation;
    end = options.follows ? readOn(service, session, begin, printer, options.asJson)
                          : readHeld(service, session, begin, printer);
  }
  if (options.showsCursor) service.notices().error("cursor " + cursorText(end));
  return ExitStatus::success;
}

}  // namespace velotide::client
