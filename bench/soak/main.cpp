#include <limits.h>
#include <signal.h>
#include <stdlib.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <iomanip>
#include <iostream>
#include <random>
#include <sstream>
#include <stdexcept>

#include "end_to_end/json_text.h"
#include "end_to_end/platform.h"
#include "soak/followers.h"
#include "soak/keeper.h"
#include "soak/mailbox_user.h"
#include "soak/visitors.h"
#include "soak/vitals.h"
#include "soak/writer.h"

namespace velotide::bench {
namespace {

using std::chrono::seconds;

constexpr const char* help =
    R"(velotide-soak [SECONDS [RUNTIME]]: loads a service with all it serves, at once, and checks all of it.

Runs for 60 seconds unless told, on a service of its own in a private directory; RUNTIME is
build/bin/velotide-runtime unless told. Progress goes to standard error every ten seconds. Ends with 0 only when
every byte was right, and the service held no more at the end than when it was warm, and left nobody behind.
)";

constexpr double mebibyte = 1024 * 1024;
constexpr double permittedGrowth = mebibyte;
constexpr seconds longestWarmUp{120};
constexpr seconds progressInterval{10};
constexpr seconds shutdownPatience{15};
constexpr std::size_t writers = 3;

double mebibytes(std::uint64_t bytes) { return static_cast<double>(bytes) / mebibyte; }

class Soak {
 public:
  Soak(seconds length, const std::string& program, const std::string& runtime);
  // Throws when a check failed.
  void run();
  void printSummary() const;

 private:
  void raiseCurtain();
  void watch();
  void lookAtRest();
  void printProgress();
  void shutDown();
  void requireSuccess() const;

  const Clock::time_point begin_ = Clock::now();
  const seconds length_;
  const std::string program_;
  const std::uint64_t seed_;
  ServiceProcess service_;
  Tally tally_;
  Fleet fleet_;
  Vitals vitals_;
  // Last, so that everybody has left before what they use goes.
  Stage stage_;
  std::vector<Vitals::Reading> atRest_;
  Vitals::Reading last_;
  Clock::time_point lastAt_ = begin_;
};

Soak::Soak(seconds length, const std::string& program, const std::string& runtime)
    : length_(length),
      program_(program),
      seed_(std::random_device()()),
      service_(runtime),
      vitals_(service_, tally_) {}

void Soak::raiseCurtain() {
  auto keeper = std::make_unique<Keeper>(service_, fleet_, program_, tally_, seed_);
  keeper->fill();
  stage_.add(std::move(keeper));
  for (std::size_t index = 0; index < writers; ++index) {
    stage_.add(
        std::make_unique<Writer>(service_, fleet_, program_, tally_, seed_ + 10 + index, index, writers));
  }
  stage_.add(std::make_unique<Followers>(service_, fleet_, tally_, seed_ + 100));
  stage_.add(std::make_unique<Reader>(service_, fleet_, tally_, seed_ + 1));
  stage_.add(std::make_unique<EventReader>(service_, tally_, seed_ + 2));
  stage_.add(std::make_unique<AgentUser>(service_, fleet_, tally_, seed_ + 3));
  stage_.add(std::make_unique<MailboxUser>(service_, fleet_, tally_, seed_ + 4));
  stage_.add(std::make_unique<Intruder>(service_, tally_, seed_ + 5));
}

void Soak::requireSuccess() const {
  if (const auto failure = stage_.failure()) throw std::runtime_error(*failure);
}

void Soak::run() {
  raiseCurtain();
  watch();
  stage_.end();
  requireSuccess();
  vitals_.checkDisconnects();
  shutDown();
}

// Looks at the resting service when it is warm, at the end and a few times between.
void Soak::watch() {
  const seconds warmUp = std::min(longestWarmUp, length_ / 3);
  const auto interval = std::chrono::milliseconds(length_ - warmUp) / 4;
  auto nextLook = begin_ + warmUp;
  auto nextProgress = begin_ + progressInterval;
  for (int looks = 0; looks < 5;) {
    pause(std::chrono::milliseconds(100));
    requireSuccess();
    const auto now = Clock::now();
    if (now >= nextProgress) {
      printProgress();
      vitals_.checkDisconnects();
      nextProgress += progressInterval;
    }
    if (now < nextLook) continue;
    stage_.rest([this] { lookAtRest(); });
    requireSuccess();
    ++looks;
    nextLook = begin_ + warmUp + looks * interval;
  }
}

void Soak::lookAtRest() {
  const Vitals::Reading reading = vitals_.readAtRest();
  atRest_.push_back(reading);
  std::cerr << std::fixed << std::setprecision(2) << "soak: at rest after "
            << secondsBetween(begin_, Clock::now()) << " s: " << mebibytes(reading.otherBytes())
            << " MiB resident besides journals of " << mebibytes(reading.journalBytes) << "\n";
  const double growth = mebibytes(reading.otherBytes()) - mebibytes(atRest_.front().otherBytes());
  if (growth * mebibyte < permittedGrowth) return;
  std::ostringstream text;
  text << std::fixed << std::setprecision(2) << "memory besides the journals grew by " << growth
       << " MiB, from " << mebibytes(atRest_.front().otherBytes()) << " to "
       << mebibytes(reading.otherBytes());
  throw std::runtime_error(text.str());
}

void Soak::printProgress() {
  const Vitals::Reading reading = vitals_.read();
  const auto now = Clock::now();
  const double load =
      100 * (reading.processorSeconds - last_.processorSeconds) / secondsBetween(lastAt_, now);
  std::cerr << std::fixed << std::setprecision(1) << "soak: " << secondsBetween(begin_, now) << " s, "
            << reading.sessions << " running, " << mebibytes(tally_.verifiedBytes) << " MiB verified, "
            << tally_.restarts << " restarts, " << tally_.closes << " closes, " << tally_.gaps << " gaps, "
            << mebibytes(reading.residentBytes) << " MiB resident (" << mebibytes(reading.journalBytes)
            << " journals), " << reading.descriptors << " descriptors, processor " << load << " %\n";
  last_ = reading;
  lastAt_ = now;
}

// Children that were hung up, the stubborn ones too, are gone before the service is.
void Soak::shutDown() {
  SteadyClient client(service_, tally_);
  std::vector<pid_t> children;
  for (std::size_t place = 0; place < Fleet::size; ++place) {
    Member member = fleet_.at(place).value();
    const std::string record = client.require("read", member.session.address());
    children.push_back(static_cast<pid_t>(requireNumber(record, "pid")));
    member.session = sessionIn(record, member.session.id);
    closeMember(client, member);
  }
  client.require("shutdownIfEmpty");
  client.disconnect();
  const auto status = service_.awaitEnd(shutdownPatience);
  if (status != 0) {
    throw std::runtime_error(status ? "the service ended with " + std::to_string(*status)
                                    : "the service did not shut down");
  }
  for (const pid_t child : children) {
    if (::kill(child, 0) == 0 || errno != ESRCH)
      throw std::runtime_error("a session's child was left behind");
  }
  if (hasChildren()) throw std::runtime_error("the service left a process behind");
}

void Soak::printSummary() const {
  const auto line = [](std::string_view what, std::uint64_t count) {
    std::cout << std::setw(12) << count << "  " << what << "\n";
  };
  std::cout << std::fixed << std::setprecision(2);
  std::cout << std::setw(12) << mebibytes(tally_.verifiedBytes) << "  MiB of output verified\n";
  std::cout << std::setw(12) << mebibytes(tally_.echoedBytes) << "  MiB typed and echoed\n";
  line("sessions restarted", tally_.restarts);
  line("sessions closed and created anew", tally_.closes);
  line("subscribers that left and came back", tally_.departures);
  line("subscriptions ended by the service", tally_.cutOffs);
  line("gaps told", tally_.gaps);
  line("reads", tally_.reads);
  line("leases taken and given back", tally_.leases);
  line("requests repeated under their ID", tally_.repeats);
  line("refusals that were due", tally_.refusals);
  line("events in order", tally_.events);
  line("event cursors that expired", tally_.expiredCursors);
  line("agent reports", tally_.reports);
  line("acknowledgements", tally_.acknowledgements);
  line("mailbox requests", tally_.letters);
  line("results of waits", tally_.waits);
  line("broken clients", tally_.intrusions);
  line("requests sent again on a new connection", tally_.reconnections);
  if (atRest_.empty()) return;
  std::cout << std::setw(12) << mebibytes(atRest_.front().otherBytes())
            << "  MiB resident besides journals, warm\n";
  std::cout << std::setw(12) << mebibytes(atRest_.back().otherBytes()) << "  MiB at the end\n";
  std::cout << std::setw(12) << atRest_.back().processorSeconds << "  s of processor time\n";
}

int soak(const std::vector<std::string>& arguments) {
  std::array<char, PATH_MAX> path;
  const auto absolute = [&](const std::string& name) -> std::string {
    if (::realpath(name.c_str(), path.data()) == nullptr) failWithErrno(name);
    return path.data();
  };
  int length = 60;
  if (arguments.size() > 1) {
    const std::string& text = arguments[1];
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    if (error != std::errc() || *end != '\0' || length < 3)
      throw std::runtime_error("not a usable time: " + text);
  }
  adoptOrphans();
  // Whatever hangs must not hang for ever.
  endOnSignalsOrAfter(seconds(length + 180));
  Soak run(seconds(length), absolute(arguments[0]),
           absolute(arguments.size() > 2 ? arguments[2] : "build/bin/velotide-runtime"));
  try {
    run.run();
  } catch (...) {
    run.printSummary();
    throw;
  }
  run.printSummary();
  std::cout << "soak passed\n";
  return 0;
}

}  // namespace
}  // namespace velotide::bench

int main(int count, char** arguments) {
  using namespace velotide::bench;
  const std::vector<std::string> all(arguments, arguments + count);
  try {
    if (all.size() > 1 && all[1] == childOption) return runChild(all);
    if (all.size() > 1 && all[1] == "--help") return std::cout << help, 0;
    return soak(all);
  } catch (const std::exception& failure) {
    std::cerr << "velotide-soak: " << failure.what() << "\n";
    return 1;
  }
}
