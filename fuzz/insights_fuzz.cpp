#include <chrono>

#include "chunks.h"
#include "commands/output_insights.h"
#include "commands/unicode_text.h"

using namespace velotide;

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
    require(isUtf8(insight.value) && isUtf8(insight.line) && trimmed(insight.line) == insight.line);
  }
  const auto summary = Analyzer::outputSummary(text);
  require(summary.has_value() == !insights.empty());
  require(Analyzer::hasErrorSignal(text) == (summary && (summary->errorLine || summary->stackTraceLine)));
  const auto formatted = Analyzer::formattedJSON(text);
  if (!insights.empty() && insights[0].kind == TerminalOutputInsightKind::json)
    require(formatted.has_value());
  Analyzer::summary(text);
  return 0;
}
