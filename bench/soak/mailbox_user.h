#pragma once

#include <map>
#include <string>

#include "end_to_end/waiting.h"
#include "soak/fleet.h"
#include "soak/stage.h"

namespace velotide::bench {

// Puts requests and waits into the mailbox, and things that are none; takes the answers out. Every request is
// answered once, every wait has one result, and what is no request goes unanswered.
class MailboxUser : public Actor {
 public:
  MailboxUser(const ServiceProcess& service, const Fleet& fleet, Tally& tally, std::uint64_t seed);

  std::string name() const override { return "mailbox user"; }
  void act() override;
  void rest() override;

 private:
  struct Expected {
    std::string action;
    // Owner of a wait.
    std::string control;
    Clock::time_point deadline;
  };

  void ask(const std::string& action, const std::string& fields, std::chrono::milliseconds patience);
  void askSomething();
  void wait();
  void cancelOne();
  void cancelAll();
  void bind();
  void putRubbish();
  void collect();
  void check(const std::string& id, const std::string& answer);
  std::string randomTab();

  const Fleet& fleet_;
  Tally& tally_;
  Random random_;
  const std::string requests_;
  const std::string responses_;
  const std::string contexts_;
  std::string epoch_;
  std::uint64_t sequence_ = 0;
  std::string control_;
  std::map<std::string, Expected> expected_;
};

}  // namespace velotide::bench
