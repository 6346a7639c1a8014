#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "end_to_end/line_reader.h"
#include "end_to_end/processes.h"

namespace velotide::bench {

// One connection to a service.
class WireClient {
 public:
  WireClient(std::string socketPath, std::string capability);

  int descriptor() const { return socket_.get(); }
  LineReader& lines() { return lines_; }

  // Sends a request with these extra fields, each of them written behind a comma; answers its ID.
  std::string send(std::string_view action, std::string_view fields = {});
  // The same under an ID that was used before.
  void sendAs(const std::string& id, std::string_view action, std::string_view fields);
  // The next line, waiting for it; valid until the next call.
  std::string_view receive(std::chrono::milliseconds patience = std::chrono::seconds(30));
  // Sends and waits for the answer, skipping pushes; throws when the service refuses.
  std::string call(std::string_view action, std::string_view fields = {});
  // The same, but a refusal with this word is answered with nothing.
  std::optional<std::string> callUnless(std::string_view toleratedError, std::string_view action,
                                        std::string_view fields);

 private:
  std::string capability_;
  Descriptor socket_;
  LineReader lines_;
};

// What a client must quote to act on a session.
struct HostedSession {
  std::string id;
  std::string generation;
  std::string controlEpoch;
  std::uint64_t nextInputSequence = 1;

  std::string address() const;
  // The cursor behind which a read or a subscription begins.
  std::string after(std::uint64_t offset) const;
  std::string inputFields(std::string_view bytes);
};

// Fields that create a session of `arguments` under a fresh ID, which `id` receives.
std::string launchFields(const std::vector<std::string>& arguments, std::string& id);
HostedSession sessionIn(std::string_view response, std::string id);
HostedSession createSession(WireClient& client, const std::vector<std::string>& arguments);
void closeSession(WireClient& client, const HostedSession& session);

// Output carried by a push or a response; absent when there is none.
struct OutputBatch {
  std::string_view base64;
  std::uint64_t end = 0;
};
std::optional<OutputBatch> outputIn(std::string_view record, std::string& scratch);

// Unique in this run; any thread may ask.
std::string freshUuid();

}  // namespace velotide::bench
