#include "commands/output_summary.h"

#include "base/record.h"
#include "commands/unicode_text.h"

namespace velotide {

namespace {

std::string joinedKinds(const std::vector<TerminalOutputInsightKind>& kinds, std::string_view separator) {
  std::string text;
  for (const TerminalOutputInsightKind kind : kinds) {
    if (!text.empty()) text += separator;
    text += rawWord(kind);
  }
  return text;
}

}  // namespace

std::string labelKey(TerminalOutputInsightKind kind) {
  return "output_insight." + std::string(rawWord(kind));
}

std::string TerminalOutputInsight::id() const {
  return std::string(rawWord(kind)) + ":" + value + ":" + line;
}

std::string TerminalOutputSummary::aiContextText() const {
  std::string text;
  const auto add = [&](std::string_view label, const std::string& content) {
    if (!text.empty()) text += '\n';
    text.append(label) += content;
  };
  if (!insightKinds.empty()) add("Output insight kinds: ", joinedKinds(insightKinds, ", "));
  if (errorLine) add("Output error: ", *errorLine);
  if (warningLine) add("Output warning: ", *warningLine);
  if (url) add("Output URL: ", *url);
  if (filePath) add("Output path: ", *filePath);
  if (commitHash) add("Output commit: ", *commitHash);
  if (stackTraceLine) add("Output stack: ", *stackTraceLine);
  return text;
}

std::string TerminalOutputSummary::searchableText() const {
  std::string text = joinedKinds(insightKinds, " ");
  for (const auto* part : {&errorLine, &warningLine, &url, &filePath, &commitHash, &stackTraceLine}) {
    text += '\n';
    text += part->value_or("");
  }
  return text;
}

std::optional<std::string> TerminalOutputSummary::primaryDiagnosticLine() const {
  for (const auto* part : {&errorLine, &warningLine, &stackTraceLine, &filePath, &url, &commitHash}) {
    if (!*part) continue;
    const std::string_view line = trimmed(**part);
    if (!line.empty()) return std::string(line);
  }
  return std::nullopt;
}

}  // namespace velotide
