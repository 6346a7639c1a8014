#include "soak/soak.h"

#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <iomanip>
#include <iostream>
#include <random>
#include <sstream>
#include <stdexcept>

#include "end_to_end/json_text.h"
#include "soak/followers.h"
#include "soak/keeper.h"
#include "soak/mailbox_user.h"
#include "soak/patience.h"
#include "soak/visitors.h"
#include "soak/writer.h"

namespace velotide::bench {
namespace {

using std::chrono::seconds;

constexpr double mebibyte = 1024 * 1024;
constexpr seconds longestWarmUp{120};
constexpr seconds shortWarmUp{90};
constexpr seconds progressInterval{10};
constexpr std::size_t writers = 3;

double mebibytes(std::uint64_t bytes) { return static_cast<double>(bytes) / mebibyte; }

}  // namespace

Soak::Soak(seconds length, const std::string& program, const std::string& runtime)
    : length_(length),
      warmUp_(std::min(longestWarmUp, length / 3)),
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
  checkGrowth();
  vitals_.checkDisconnects();
  shutDown();
}

// Looks at the resting service when it is warm, at the end and a few times between.
void Soak::watch() {
  const auto interval = std::chrono::milliseconds(length_ - warmUp_) / 4;
  auto nextLook = begin_ + warmUp_;
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
    nextLook = begin_ + warmUp_ + looks * interval;
  }
}

void Soak::lookAtRest() {
  const Vitals::Reading reading = vitals_.readAtRest();
  atRest_.push_back(reading);
  std::cerr << std::fixed << std::setprecision(2) << "soak: at rest after "
            << secondsBetween(begin_, Clock::now()) << " s: " << mebibytes(reading.otherBytes())
            << " MiB resident besides journals of " << mebibytes(reading.journalBytes) << "\n";
}

// At rest it fluctuates by some tenths. Before its first minutes are over the heap still finds its shape.
void Soak::checkGrowth() const {
  const double permitted = warmUp_ < shortWarmUp ? 2 : 1;
  const double before = mebibytes(atRest_.front().otherBytes());
  const double after = mebibytes(atRest_.back().otherBytes());
  if (after - before < permitted) return;
  std::ostringstream text;
  text << std::fixed << std::setprecision(2) << "memory besides the journals grew by " << after - before
       << " MiB, from " << before << " to " << after;
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
  const auto status = service_.awaitEnd(soakPatience);
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
  line("ms for the slowest answer", tally_.slowestMilliseconds);
  line("requests sent again on a new connection", tally_.reconnections);
  if (atRest_.empty()) return;
  std::cout << std::setw(12) << mebibytes(atRest_.front().otherBytes())
            << "  MiB resident besides journals, warm\n";
  std::cout << std::setw(12) << mebibytes(atRest_.back().otherBytes()) << "  MiB at the end\n";
  std::cout << std::setw(12) << atRest_.back().processorSeconds << "  s of processor time\n";
}

}  // namespace velotide::bench
