#include "end_to_end/printing.h"

#include <stdexcept>

#include "end_to_end/json_text.h"
#include "end_to_end/stream.h"
#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

// Rare enough that the asking costs the service less than a thousandth of its time.
constexpr std::chrono::milliseconds askingPeriod{50};

}  // namespace

std::vector<std::string> printingChild(const Options& options, std::uint64_t textBytes) {
  return {options.program, "--print", std::to_string(textBytes), std::string(nameOf(options.text))};
}

std::vector<std::string> echoingChild(const Options& options) { return {options.program, "--echo"}; }

PrintingSession::PrintingSession(const Options& options, const ServiceProcess& service,
                                 std::uint64_t textBytes)
    : service_(service),
      client_(service.connect()),
      textBytes_(textBytes),
      text_(options.text),
      session_(createSession(client_, printingChild(options, textBytes))) {
  while (takenBytes() < readyMark.size()) pause(std::chrono::milliseconds(2));
}

void PrintingSession::start() { client_.call("input", session_.inputFields(startByte)); }

// On a fresh connection: the service ends one that was silent for five seconds.
void PrintingSession::close() {
  WireClient client = service_.connect();
  closeSession(client, session_);
}

std::uint64_t PrintingSession::takenBytes() {
  return requireNumber(client_.call("inspectInput", session_.address()), "outputOffset");
}

void PrintingSession::awaitTaken() {
  while (takenBytes() < streamBytes(textBytes_)) pause(askingPeriod);
}

double PrintingSession::checkRetained() {
  StreamReceiver receiver(textBytes_, StreamReceiver::Check::decoded, text_);
  std::string scratch;
  while (!receiver.complete()) {
    const std::string response =
        client_.call("read", session_.address() + session_.after(receiver.position()));
    const auto batch = outputIn(response, scratch);
    if (!batch) throw std::runtime_error("the service retained less than it said it had taken");
    receiver.accept(batch->base64, batch->end);
  }
  return receiver.printingSeconds();
}

}  // namespace velotide::bench
