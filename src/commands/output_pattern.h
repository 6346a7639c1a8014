#pragma once

#include <unicode/uregex.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace velotide {

// One regular expression for lines that a hostile program may have printed. Compiled at its first use; one
// that does not compile matches nothing. Not for use by two threads at once.
// Bounded: a search gives up after searchSteps steps of the matcher or matcherMemory bytes of its stack. The
// bound counts steps, not time, so that a text gives the same matches on every machine.
class OutputPattern {
 public:
  // `pattern` must outlive this.
  explicit constexpr OutputPattern(std::u16string_view pattern) : pattern_(pattern) {}

  // The matches in one line, from left to right. `line` must stay in place meanwhile.
  class Matches {
   public:
    // Nothing at the end, or when the search gave up.
    std::optional<std::u16string_view> next();
    bool gaveUp() const { return gaveUp_; }

   private:
    friend class OutputPattern;
    Matches(URegularExpression* matcher, std::u16string_view line);

    URegularExpression* matcher_;
    std::u16string_view line_;
    bool gaveUp_ = false;
  };

  Matches matchesIn(std::u16string_view line);
  bool isFoundIn(std::u16string_view line) { return matchesIn(line).next().has_value(); }

 private:
  // The matcher's unit of time is 10,000 steps, about 0.07 ms. A pattern that is linear in the line needs
  // less than 8 units for 16 KiB; one that is quadratic gives up on a hostile line of more than some 600
  // characters, so that 16 KiB of the worst lines cost 27 times this.
  static constexpr std::int32_t timeUnits = 10;
  static constexpr std::int32_t matcherMemory = 2 * 1024 * 1024;

  struct Close {
    void operator()(URegularExpression* matcher) const { uregex_close(matcher); }
  };

  void compile();

  std::u16string_view pattern_;
  bool compiled_ = false;
  std::unique_ptr<URegularExpression, Close> matcher_;
};

}  // namespace velotide
