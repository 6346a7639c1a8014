#pragma once

#include <map>
#include <string>
#include <vector>

#include "soak/fleet.h"
#include "soak/stage.h"
#include "soak/stream_check.h"

namespace velotide::bench {

// Types into echoing sessions of its own, as a person and as an agent with control, and lets others try in
// vain. What is accepted is the session's known stream, piece by piece; so is what comes back, unless a byte
// was lost, doubled, or taken from a refused request.
class Writer : public Actor {
 public:
  // Keeps every `stride`th of the echoing places, from `first` on.
  Writer(const ServiceProcess& service, Fleet& fleet, std::string program, Tally& tally, std::uint64_t seed,
         std::size_t first, std::size_t stride);

  std::string name() const override { return "writer"; }
  void act() override;
  void rest() override;

 private:
  struct Typing {
    std::size_t place;
    Member member;
    std::uint64_t accepted;
    StreamCheck check;
  };

  ChildPlan newPlan();
  void begin(Typing& typing, Member member);
  void type(Typing& typing, std::string_view sender, std::uint64_t pieces);
  void tryInVain(Typing& typing, std::string_view refusal, std::string_view sender, std::uint64_t sequence);
  void typeAsPerson(Typing& typing);
  void typeAsAgent(Typing& typing);
  void control(Typing& typing, std::string_view action);
  void awaitEcho(Typing& typing);
  void awaitFarewell(Typing& typing);
  void restart(Typing& typing);
  void replace(Typing& typing);
  std::string inputFields(const Typing& typing, std::string_view sender, std::uint64_t sequence,
                          std::string_view bytes) const;

  Fleet& fleet_;
  std::string program_;
  Tally& tally_;
  Random random_;
  SteadyClient client_;
  std::vector<Typing> typings_;
  std::string scratch_;
};

}  // namespace velotide::bench
