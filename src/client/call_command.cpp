#include <algorithm>
#include <string_view>

#include "client/mailbox_client.h"
#include "client/printing.h"
#include "client/session_names.h"
#include "client/signal_pipe.h"
#include "client/trouble.h"
#include "client/wait_commands.h"

namespace velotide::client {

namespace {

struct FieldNames {
  std::vector<std::string_view> names;
  template <typename T>
  void operator()(const char* name, const T&) {
    names.emplace_back(name);
  }
};

// Throws Trouble when no field has that name, except `id` and `action`: those are the command's own.
void requireField(std::string_view name) {
  const RuntimeNativeRequest request;
  FieldNames fields;
  RuntimeNativeRequest::fields(request, fields);
  const bool isKnown = std::find(fields.names.begin(), fields.names.end(), name) != fields.names.end();
  if (!isKnown || name == "id" || name == "action")
    throw Trouble("No field is named " + std::string(name) + ". `velotide call --help` lists them.",
                  ExitStatus::usage);
}

// The service would drop the request without an answer.
[[noreturn]] void failForm() {
  throw Trouble("A field does not have the form that the mailbox takes. `velotide call --help` lists them.",
                ExitStatus::usage);
}

// One JSON value, so that it cannot bring further fields with it.
std::string jsonValue(const std::string& text) {
  ByteQueue copy;
  copy.append(text + " ");
  if (!JsonDocument().parse(copy.mutableText())) failForm();
  return text;
}

std::string quoted(std::string_view text) {
  ByteQueue out;
  { JsonWriter(out).text(text); }
  return std::string(out.text());
}

// One word of the command line as a member of a JSON object.
std::string member(const std::string& word) {
  const std::size_t equals = word.find('=');
  if (equals == std::string::npos || equals == 0)
    throw Trouble("A field is given as KEY=TEXT or KEY:=JSON, not as " + word + ".", ExitStatus::usage);
  const bool isJson = word[equals - 1] == ':';
  const std::string name = word.substr(0, equals - (isJson ? 1 : 0));
  requireField(name);
  const std::string value = word.substr(equals + 1);
  return quoted(name) + ":" + (isJson ? jsonValue(value) : quoted(value));
}

// What stands between the braces of an object.
std::string members(const std::string& object) {
  ByteQueue copy;
  copy.append(object);
  JsonDocument document;
  const bool isValue = document.parse(copy.mutableText());
  JsonDocument::Cursor cursor = document.root();
  if (!isValue || !cursor.enterObject()) throw Trouble("--json takes one JSON object.", ExitStatus::usage);
  bool isEmpty = true;
  while (const std::optional<std::string_view> name = cursor.nextKey()) {
    requireField(*name);
    cursor.skipValue();
    isEmpty = false;
  }
  const std::size_t begin = object.find('{') + 1;
  return isEmpty ? "" : "," + object.substr(begin, object.rfind('}') - begin);
}

RuntimeNativeRequest requestOf(const CallOptions& options) {
  std::string text = "{\"id\":\"\",\"action\":" + quoted(options.action);
  if (!options.object.empty()) text += members(options.object);
  for (const std::string& word : options.fields) text += "," + member(word);
  ByteQueue json;
  json.append(text + "}");
  JsonDocument document;
  auto request = decodeText<RuntimeNativeRequest>(document, json.mutableText());
  if (!request) failForm();
  return std::move(*request);
}

std::string sessionText(Service& service, const std::string& name) {
  // A whole name needs no connection to look it up.
  return Uuid::parse(name) ? name : findSession(service, name).id.text();
}

}  // namespace

int callAction(Service& service, const CallOptions& options) {
  RuntimeNativeRequest request = requestOf(options);
  if (options.session) request.tab = sessionText(service, *options.session);
  const bool isAnswered = !request.noResponse.value_or(false);
  const bool waits = request.action == rawWord(RuntimeNativeAction::waitSession);
  const Seconds length = waits && request.waitSpec ? std::max(request.waitSpec->timeoutSeconds, 0.0) : 0;
  const std::string owner = request.controlID.value_or("");
  MailboxClient mailbox(service.root());
  SignalPipe signals({SIGINT, SIGTERM, SIGHUP});
  const std::string id = mailbox.send(std::move(request));
  const Uptime deadline = now() + length + MailboxClient::answerDeadline;
  if (!isAnswered) {
    if (mailbox.awaitTaken(id, deadline, signals.descriptor())) return ExitStatus::success;
  } else if (const std::optional<MailboxAnswer> answer = mailbox.await(id, deadline, signals.descriptor())) {
    print(answer->text + "\n");
    if (!answer->record.ok) service.notices().error(answer->record.error.value_or("not ok"));
    return answer->record.ok ? ExitStatus::success : ExitStatus::failure;
  }
  const bool isTaken = !mailbox.withdraw(id);
  const std::vector<int> came = signals.take();
  if (came.empty()) MailboxClient::failUnanswered();
  if (waits && isTaken) mailbox.cancelWait(id, owner);
  return ExitStatus::signalBase + came.front();
}

}  // namespace velotide::client
