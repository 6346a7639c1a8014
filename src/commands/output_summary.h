#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What the output of a command says at a glance.
namespace velotide {

enum class TerminalOutputInsightKind { error, warning, url, filePath, json, yaml, stackTrace, commitHash };
constexpr auto rawWords(TerminalOutputInsightKind) {
  return std::array{"error", "warning", "url", "filePath", "json", "yaml", "stackTrace", "commitHash"};
}
constexpr std::size_t outputInsightKindCount = rawWords(TerminalOutputInsightKind{}).size();

// The key under which a user interface finds the kind's translated name.
std::string labelKey(TerminalOutputInsightKind kind);

// One find, and the line it was found on.
struct TerminalOutputInsight {
  TerminalOutputInsightKind kind = TerminalOutputInsightKind::error;
  std::string value;
  std::string line;

  std::string id() const;

  bool operator==(const TerminalOutputInsight&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("kind", self.kind);
    visit("value", self.value);
    visit("line", self.line);
  }
};

// The first find of each kind.
struct TerminalOutputSummary {
  std::vector<TerminalOutputInsightKind> insightKinds;
  std::optional<std::string> errorLine;
  std::optional<std::string> warningLine;
  std::optional<std::string> url;
  std::optional<std::string> filePath;
  std::optional<std::string> commitHash;
  std::optional<std::string> stackTraceLine;

  bool isEmpty() const { return *this == TerminalOutputSummary{}; }

  // For an AI agent's context: a line for each thing known.
  std::string aiContextText() const;
  // For a search: always seven lines, empty where nothing is known.
  std::string searchableText() const;
  // The line to show when there is room for one.
  std::optional<std::string> primaryDiagnosticLine() const;

  bool operator==(const TerminalOutputSummary&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("insightKinds", self.insightKinds);
    visit("errorLine", self.errorLine);
    visit("warningLine", self.warningLine);
    visit("url", self.url);
    visit("filePath", self.filePath);
    visit("commitHash", self.commitHash);
    visit("stackTraceLine", self.stackTraceLine);
  }
};

}  // namespace velotide
