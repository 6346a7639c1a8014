#include "soak/stream_check.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "end_to_end/base64.h"
#include "end_to_end/json_text.h"

namespace velotide::bench {
namespace {

constexpr std::uint64_t journalBytes = 1024 * 1024;
constexpr std::size_t shownBytes = 48;

std::string readable(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes.substr(0, shownBytes)) {
    char escaped[5];
    std::snprintf(escaped, sizeof(escaped), byte >= ' ' && byte <= '~' ? "%c" : "\\x%02x",
                  static_cast<unsigned char>(byte));
    text += escaped;
  }
  return text;
}

}  // namespace

std::optional<CarriedOutput> carriedOutputIn(std::string_view record, std::string& scratch) {
  const auto data = findText(record, "data");
  if (!data) return std::nullopt;
  // The session described before the data has commands with offsets of their own.
  const std::string_view behind = record.substr(static_cast<std::size_t>(data->end() - record.begin()));
  CarriedOutput output;
  output.base64 = *data;
  if (data->find('\\') != std::string_view::npos) {
    scratch = *data;
    std::erase(scratch, '\\');
    output.base64 = scratch;
  }
  output.generation = findText(behind, "generation").value_or("");
  output.end = requireNumber(behind, "offset");
  output.latest = requireNumber(behind, "latestOffset");
  output.hasGap = behind.find(R"("hasGap":true)") != std::string_view::npos;
  return output;
}

void StreamCheck::accept(const CarriedOutput& output, Tally& tally) {
  const std::size_t count = base64Length(output.base64);
  const std::uint64_t begin = output.end - count;
  checkContinuity(output, begin, tally);
  const std::string_view seen = decodeBase64(output.base64, decoded_);
  expected_.resize(count);
  stream_.copy(begin, expected_);
  if (seen != expected_) failAtDifference(seen, expected_, begin);
  position_ = output.end;
  tally.verifiedBytes += count;
}

void StreamCheck::checkContinuity(const CarriedOutput& output, std::uint64_t begin, Tally& tally) {
  if (output.generation != generation_) fail("output of another stream", output, begin);
  if (output.end > output.latest) fail("output beyond the end", output, begin);
  if (begin < position_) fail("output arrived twice", output, begin);
  if ((begin != position_) != output.hasGap)
    fail("a gap that was not told, or told and not there", output, begin);
  if (!output.hasGap) return;
  if (begin + journalBytes != output.latest) fail("a gap over bytes that were still held", output, begin);
  ++tally.gaps;
}

void StreamCheck::fail(std::string_view complaint, const CarriedOutput& output, std::uint64_t begin) const {
  std::ostringstream text;
  text << complaint << ": expected generation " << generation_ << " from " << position_ << ", seen "
       << output.generation << " from " << begin << " to " << output.end << ", latest " << output.latest
       << (output.hasGap ? ", with a gap" : ", without a gap");
  throw std::runtime_error(text.str());
}

void StreamCheck::failAtDifference(std::string_view seen, std::string_view expected,
                                   std::uint64_t begin) const {
  const auto at = static_cast<std::size_t>(std::ranges::mismatch(seen, expected).in1 - seen.begin());
  std::ostringstream text;
  text << "output of " << generation_ << " differs from what was written, at " << begin + at << " (" << at
       << " bytes into its batch): expected \"" << readable(expected.substr(at)) << "\", seen \""
       << readable(seen.substr(at)) << "\"";
  throw std::runtime_error(text.str());
}

}  // namespace velotide::bench
