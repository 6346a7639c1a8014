#include "end_to_end/wire_client.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <stdexcept>

#include "end_to_end/base64.h"
#include "end_to_end/json_text.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

Descriptor connectTo(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) throw std::runtime_error("a socket path that is too long");
  std::copy(path.begin(), path.end(), address.sun_path);
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
  if (socket.get() < 0) failWithErrno("socket");
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    failWithErrno("connect to the service");
  }
  return socket;
}

}  // namespace

WireClient::WireClient(std::string socketPath, std::string capability)
    : capability_(std::move(capability)), socket_(connectTo(socketPath)) {}

std::string WireClient::send(std::string_view action, std::string_view fields) {
  std::string id = freshUuid();
  sendAs(id, action, fields);
  return id;
}

void WireClient::sendAs(const std::string& id, std::string_view action, std::string_view fields) {
  std::string request = R"({"protocolVersion":3,"id":)" + jsonText(id) + R"(,"action":)" + jsonText(action);
  if (!capability_.empty()) request += R"(,"capability":)" + jsonText(capability_);
  writeAll(socket_.get(), request.append(fields) + "}\n");
}

std::string_view WireClient::receive(std::chrono::milliseconds patience) {
  while (true) {
    if (const auto line = lines_.next()) return *line;
    pollfd entry{socket_.get(), POLLIN, 0};
    awaitReady({&entry, 1}, patience);
    if (!lines_.fill(socket_.get())) throw ConnectionEnded("the service ended the connection");
  }
}

std::string WireClient::call(std::string_view action, std::string_view fields) {
  return *callUnless({}, action, fields);
}

std::optional<std::string> WireClient::callUnless(std::string_view toleratedError, std::string_view action,
                                                  std::string_view fields) {
  const std::string mark = R"("id":)" + jsonText(send(action, fields));
  while (true) {
    const std::string_view line = receive();
    if (line.find(mark) == std::string_view::npos) continue;
    if (line.find(R"("ok":true)") != std::string_view::npos) return std::string(line);
    const std::string error = requireText(line, "error");
    if (!toleratedError.empty() && error == toleratedError) return std::nullopt;
    throw std::runtime_error(std::string(action) + " was refused: " + error);
  }
}

std::string HostedSession::address() const {
  return R"(,"sessionID":)" + jsonText(id) + R"(,"generation":)" + jsonText(generation);
}

std::string HostedSession::after(std::uint64_t offset) const {
  return R"(,"after":{"generation":)" + jsonText(generation) + R"(,"offset":)" + std::to_string(offset) + "}";
}

std::string HostedSession::inputFields(std::string_view bytes) {
  return address() + R"(,"controlEpoch":)" + jsonText(controlEpoch) +
         R"(,"source":"human","inputSequence":)" + std::to_string(nextInputSequence++) + R"(,"data":)" +
         jsonText(encodeBase64(bytes));
}

std::string launchFields(const std::vector<std::string>& arguments, std::string& id) {
  id = freshUuid();
  const std::vector<std::string> others(arguments.begin() + 1, arguments.end());
  return R"(,"sessionID":)" + jsonText(id) + R"(,"launch":{"executable":)" + jsonText(arguments[0]) +
         R"(,"arguments":)" + jsonList(others) +
         R"(,"environment":{"PATH":"/usr/bin:/bin","TERM":"xterm"},"directory":"/","columns":80,"rows":24})";
}

HostedSession sessionIn(std::string_view response, std::string id) {
  return {std::move(id), requireText(response, "generation"), requireText(response, "controlEpoch"),
          requireNumber(response, "nextInputSequence")};
}

// A session that was just closed counts towards the service's limit until its child is gone.
HostedSession createSession(WireClient& client, const std::vector<std::string>& arguments) {
  while (true) {
    std::string id;
    const std::string fields = launchFields(arguments, id);
    if (const auto response = client.callUnless("resource_limit", "create", fields)) {
      return sessionIn(*response, std::move(id));
    }
    pause(std::chrono::milliseconds(5));
  }
}

void closeSession(WireClient& client, const HostedSession& session) {
  client.call("close", session.address() + R"(,"controlEpoch":)" + jsonText(session.controlEpoch));
}

std::optional<OutputBatch> outputIn(std::string_view record, std::string& scratch) {
  const auto data = findText(record, "data");
  if (!data || data->empty()) return std::nullopt;
  // The session described before the data has commands with offsets of their own.
  const std::string_view behind = record.substr(static_cast<std::size_t>(data->end() - record.begin()));
  OutputBatch batch{*data, requireNumber(behind, "offset")};
  // A slash may be written with a backslash before it.
  if (data->find('\\') != std::string_view::npos) {
    scratch = *data;
    std::erase(scratch, '\\');
    batch.base64 = scratch;
  }
  return batch;
}

std::string freshUuid() {
  static std::atomic<std::uint64_t> issued = 0;
  char text[37];
  std::snprintf(text, sizeof(text), "B0000000-0000-4000-8000-%012llX",
                static_cast<unsigned long long>(++issued));
  return text;
}

}  // namespace velotide::bench
