#include <chrono>

#include "chunks.h"
#include "commands/output_insights.h"
#include "commands/output_pattern.h"
#include "commands/relative_path.h"
#include "commands/unicode_text.h"

using namespace velotide;

namespace {

// Nothing when the matcher gave up.
std::optional<std::vector<std::u16string>> matchesOf(OutputPattern::Matches matches) {
  std::vector<std::u16string> all;
  while (const auto match = matches.next()) all.emplace_back(*match);
  return matches.gaveUp() ? std::nullopt : std::optional(all);
}

// The parts of a line that are searched for paths hold every path that is in the line.
void checkPathRegions(std::u16string_view line) {
  static OutputPattern pattern(relativePathPattern);
  const auto expected = matchesOf(pattern.matchesIn(line));
  if (!expected) return;
  std::vector<std::u16string> found;
  RelativePathRegions regions(line);
  for (auto part = regions.next(); !part.empty(); part = regions.next()) {
    const auto inPart = matchesOf(pattern.matchesIn(line, part));
    require(inPart.has_value());
    found.insert(found.end(), inPart->begin(), inPart->end());
  }
  require(found == expected);
}

}  // namespace

// No text is slow to read; kinds are bounded; the cheap question gives the summary's answer.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using Analyzer = TerminalOutputInsightAnalyzer;
  const std::string_view text = textOf({data, size});
  const auto begin = std::chrono::steady_clock::now();
  const auto insights = Analyzer::insights(text);
  // Instrumented code is slower by an order of magnitude.
  require(std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(500));
  std::size_t counts[outputInsightKindCount] = {};
  for (const auto& insight : insights) {
    require(++counts[static_cast<std::size_t>(insight.kind)] <= Analyzer::maximumInsightsPerKind);
    require(isValidUtf8(bytesOf(insight.value)) && isValidUtf8(bytesOf(insight.line)) &&
            trimmed(insight.line) == insight.line);
  }
  const auto summary = Analyzer::outputSummary(text);
  require(summary.has_value() == !insights.empty());
  require(Analyzer::hasErrorSignal(text) == (summary && (summary->errorLine || summary->stackTraceLine)));
  const auto formatted = Analyzer::formattedJSON(text);
  if (!insights.empty() && insights[0].kind == TerminalOutputInsightKind::json)
    require(formatted.has_value());
  Analyzer::summary(text);
  for (std::size_t at = 0; at <= text.size();) {
    const std::string_view line = text.substr(at, text.find('\n', at) - at);
    checkPathRegions(toUtf16(line.substr(0, 300)));
    at += line.size() + 1;
  }
  return 0;
}
