#include "commands/output_pattern.h"

namespace velotide {

void OutputPattern::compile() {
  compiled_ = true;
  UErrorCode status = U_ZERO_ERROR;
  matcher_.reset(
      uregex_open(pattern_.data(), static_cast<std::int32_t>(pattern_.size()), 0, nullptr, &status));
  uregex_useTransparentBounds(matcher_.get(), true, &status);
  uregex_setStackLimit(matcher_.get(), matcherMemory, &status);
  if (U_FAILURE(status)) matcher_.reset();
}

OutputPattern::Matches OutputPattern::matchesIn(std::u16string_view line, std::u16string_view region) {
  if (!compiled_) compile();
  return {matcher_.get(), line, region};
}

OutputPattern::Matches::Matches(URegularExpression* matcher, std::u16string_view line,
                                std::u16string_view region)
    : matcher_(matcher), line_(line) {
  if (matcher_ == nullptr) return;
  const auto begin = static_cast<std::int32_t>(region.data() - line.data());
  const auto end = begin + static_cast<std::int32_t>(region.size());
  const auto timeUnits = static_cast<std::int32_t>(1 + region.size() / charactersPerTimeUnit);
  UErrorCode status = U_ZERO_ERROR;
  uregex_setText(matcher_, line.data(), static_cast<std::int32_t>(line.size()), &status);
  uregex_setRegion(matcher_, begin, end, &status);
  uregex_setTimeLimit(matcher_, timeUnits, &status);
  if (U_FAILURE(status)) matcher_ = nullptr;
}

std::optional<std::u16string_view> OutputPattern::Matches::next() {
  if (matcher_ == nullptr) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  const bool found = uregex_findNext(matcher_, &status) != 0;
  gaveUp_ = U_FAILURE(status) != 0;
  if (gaveUp_ || !found) return std::nullopt;
  const std::int32_t begin = uregex_start(matcher_, 0, &status);
  const std::int32_t end = uregex_end(matcher_, 0, &status);
  return line_.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin));
}

}  // namespace velotide
