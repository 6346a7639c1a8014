#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "end_to_end/service_process.h"
#include "end_to_end/waiting.h"
#include "soak/tally.h"

namespace velotide::bench {

struct Reply {
  std::string record;
  // Empty when the request succeeded.
  std::string error;

  bool ok() const { return error.empty(); }
};

// A client that asks and reads its answers. The service ends idle connections and those beyond its limit:
// then this one connects again and sends the same request under the same ID, which the service carries out
// once.
class SteadyClient {
 public:
  SteadyClient(const ServiceProcess& service, Tally& tally) : service_(service), tally_(tally) {}

  Reply ask(std::string_view action, std::string_view fields = {});
  // The answer of a request that must succeed.
  std::string require(std::string_view action, std::string_view fields = {});
  // A request that must be refused with this word.
  void requireRefusal(std::string_view error, std::string_view action, std::string_view fields);
  // Sends the last request again, which succeeded; throws when the answer is another one.
  void repeat(const Reply& first);
  void disconnect() { client_.reset(); }

 private:
  Reply exchange();
  Reply awaitReply();
  void noteSlowest(Clock::time_point sent);

  const ServiceProcess& service_;
  Tally& tally_;
  std::optional<WireClient> client_;
  std::string id_;
  std::string action_;
  std::string fields_;
};

}  // namespace velotide::bench
