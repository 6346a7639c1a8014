#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "commands/output_summary.h"

namespace velotide {

// Reads what a command printed and picks out errors, warnings, stack traces, URLs, paths, commits, JSON and
// YAML. Pure functions; bytes that are not UTF-8 are read as U+FFFD. Work and results are bounded whatever
// the text holds: a search that runs into the matcher's bounds finds nothing on that line.
class TerminalOutputInsightAnalyzer {
 public:
  static constexpr std::size_t maximumInsightsPerKind = 3;
  // Grapheme clusters of an error, warning or stack-trace value, and of formatted JSON.
  static constexpr std::size_t maximumValueCharacters = 180;
  static constexpr std::size_t maximumFormattedCharacters = 6000;

  // In the order in which they were found.
  static std::vector<TerminalOutputInsight> insights(std::string_view text);
  // Nothing when there are no insights.
  static std::optional<TerminalOutputSummary> outputSummary(std::string_view text);
  // Whether the summary's kinds would hold error or stackTrace, without the cost of finding the others.
  static bool hasErrorSignal(std::string_view text);

  // A report for people, a section for each kind that was found; empty when nothing was.
  static std::string summary(std::string_view text);
  // Indented by two spaces a level, keys in their order, cut at maximumFormattedCharacters; nothing unless
  // the text is a JSON object or array.
  static std::optional<std::string> formattedJSON(std::string_view text);
};

}  // namespace velotide
