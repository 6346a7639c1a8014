#pragma once

#include <unicode/uregex.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace velotide {

// One regular expression for lines that a hostile program may have printed. Compiled at its first use; one
// that does not compile matches nothing. Not for use by two threads at once.
// Bounded: a search gives up after a number of the matcher's steps in proportion to what is searched, or when
// its stack exceeds matcherMemory bytes. Steps are counted, not time, so that a text gives the same matches
// on every machine.
class OutputPattern {
 public:
  // `pattern` must outlive this.
  explicit constexpr OutputPattern(std::u16string_view pattern) : pattern_(pattern) {}

  // The matches in one line, or in a part of it, from left to right. `line` must stay in place meanwhile.
  class Matches {
   public:
    // Nothing at the end, or when the search gave up.
    std::optional<std::u16string_view> next();
    bool gaveUp() const { return gaveUp_; }

   private:
    friend class OutputPattern;
    Matches(URegularExpression* matcher, std::u16string_view line, std::u16string_view region);

    URegularExpression* matcher_;
    std::u16string_view line_;
    bool gaveUp_ = false;
  };

  Matches matchesIn(std::u16string_view line) { return matchesIn(line, line); }
  // `region` is a part of `line`; what stands around it still counts as context.
  Matches matchesIn(std::u16string_view line, std::u16string_view region);
  bool isFoundIn(std::u16string_view line) { return matchesIn(line).next().has_value(); }

 private:
  // The matcher's unit of time is 10,000 steps, about 0.1 ms. A search that is linear in the text needs less
  // than one unit for 2,000 characters.
  static constexpr std::size_t charactersPerTimeUnit = 2000;
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
