#include "commands/output_insights.h"

#include <algorithm>
#include <array>
#include <initializer_list>

#include "base/json_document.h"
#include "commands/output_pattern.h"
#include "commands/relative_path.h"
#include "commands/unicode_text.h"

namespace velotide {

namespace {

using Analyzer = TerminalOutputInsightAnalyzer;
using Kind = TerminalOutputInsightKind;
using Text = std::u16string_view;

thread_local OutputPattern urlRegex(uR"(https?://[^\s<>"']+)");
thread_local OutputPattern absolutePathRegex(uR"((?<![\w.-])(?:/[\w .@%+=:,~_-]+)+(?::\d+(?::\d+)?)?)");
thread_local OutputPattern relativePathRegex(relativePathPattern);
thread_local OutputPattern commitHashRegex(uR"(\b[0-9a-f]{7,40}\b)");
thread_local OutputPattern commitContextRegex(uR"((?i)\b(commit|hash|sha|revision|rev)\b)");
thread_local OutputPattern stackFrameRegex(uR"(^\s*at\s+\S+)");
thread_local OutputPattern yamlKeyValueRegex(uR"(^[A-Za-z0-9_.-]+\s*:\s*.+)");
thread_local OutputPattern yamlListItemRegex(uR"(^-\s+[A-Za-z0-9_.-]+\s*:\s*.+)");

bool contains(Text text, Text word) { return text.find(word) != text.npos; }
bool containsAny(Text text, std::initializer_list<Text> words) {
  return std::any_of(words.begin(), words.end(), [&](Text word) { return contains(text, word); });
}

// Gives the lines of a text that are not blank, trimmed.
class LineReader {
 public:
  explicit LineReader(Text text) : rest_(text) {}

  // Empty at the end.
  Text next() {
    Text line;
    while (line.empty() && !rest_.empty()) {
      const auto end = std::find_if(rest_.begin(), rest_.end(), isNewline);
      const auto size = static_cast<std::size_t>(end - rest_.begin());
      line = trimmed(rest_.substr(0, size));
      rest_.remove_prefix(std::min(size + 1, rest_.size()));
    }
    return line;
  }

 private:
  Text rest_;
};

// Gathers finds as views into the analyzed text, at most so many of a kind and each once.
class Collector {
 public:
  bool isFull(Kind kind) const { return counts_[index(kind)] == Analyzer::maximumInsightsPerKind; }

  void add(Kind kind, Text value, Text line) {
    if (isFull(kind)) return;
    const Find find{kind, trimmed(value), trimmed(line)};
    if (find.value.empty() && find.line.empty()) return;
    if (std::find(finds_.begin(), finds_.end(), find) != finds_.end()) return;
    finds_.push_back(find);
    ++counts_[index(kind)];
  }

  void addMatches(Kind kind, OutputPattern& pattern, Text line) { addMatches(kind, pattern, line, line); }

  // A search that gives up counts as one without matches.
  void addMatches(Kind kind, OutputPattern& pattern, Text line, Text region) {
    constexpr Text punctuation = u".,);]";
    const std::size_t before = finds_.size();
    OutputPattern::Matches matches = pattern.matchesIn(line, region);
    while (!isFull(kind)) {
      const std::optional<Text> match = matches.next();
      if (!match) break;
      Text value = *match;
      value.remove_prefix(std::min(value.find_first_not_of(punctuation), value.size()));
      value = value.substr(0, value.find_last_not_of(punctuation) + 1);
      add(kind, value, line);
    }
    if (!matches.gaveUp()) return;
    counts_[index(kind)] -= finds_.size() - before;
    finds_.resize(before);
  }

  std::vector<TerminalOutputInsight> insights() const {
    std::vector<TerminalOutputInsight> list;
    for (const Find& find : finds_) list.push_back({find.kind, toUtf8(find.value), toUtf8(find.line)});
    return list;
  }

 private:
  struct Find {
    Kind kind = Kind::error;
    Text value;
    Text line;

    // Hundreds of finds may lie on one long line; it is not compared with itself each time.
    bool operator==(const Find& other) const {
      if (kind != other.kind || value != other.value) return false;
      const bool same = line.data() == other.line.data() && line.size() == other.line.size();
      return same || line == other.line;
    }
  };

  static std::size_t index(Kind kind) { return static_cast<std::size_t>(kind); }

  std::vector<Find> finds_;
  std::array<std::size_t, outputInsightKindCount> counts_{};
};

// One line together with its lower-case form. Each pattern is preceded by a cheap test that holds on every
// line it can match, since a search costs more than all the tests together.
struct Line {
  Text text;
  Text lower;

  bool isError() const { return containsAny(lower, {u"error", u"exception", u"failed", u"fatal"}); }
  bool isWarning() const { return containsAny(lower, {u"warning", u"warn:"}); }
  bool isStackTrace() const {
    if (containsAny(lower, {u"traceback", u"stack trace"})) return true;
    return text.starts_with(u"at") && stackFrameRegex.isFoundIn(text);
  }
  bool speaksOfCommits() const {
    // Letters beyond ASCII may equal ASCII ones when case is ignored.
    const bool possible = containsAny(lower, {u"commit", u"hash", u"sha", u"rev"}) || !isAscii(text);
    return possible && commitContextRegex.isFoundIn(text);
  }
};

void collectFromLine(const Line& line, Collector& found) {
  const auto addLine = [&](Kind kind) {
    found.add(kind, firstCharacters(line.text, Analyzer::maximumValueCharacters), line.text);
  };
  if (!found.isFull(Kind::error) && line.isError()) addLine(Kind::error);
  if (!found.isFull(Kind::warning) && line.isWarning()) addLine(Kind::warning);
  if (!found.isFull(Kind::stackTrace) && line.isStackTrace()) addLine(Kind::stackTrace);
  if (!found.isFull(Kind::url) && contains(line.text, u"://")) {
    found.addMatches(Kind::url, urlRegex, line.text);
  }
  if (!found.isFull(Kind::filePath) && contains(line.text, u"/")) {
    found.addMatches(Kind::filePath, absolutePathRegex, line.text);
  }
  RelativePathRegions regions(line.text);
  for (Text part = regions.next(); !part.empty() && !found.isFull(Kind::filePath); part = regions.next()) {
    found.addMatches(Kind::filePath, relativePathRegex, line.text, part);
  }
  if (!found.isFull(Kind::commitHash) && line.speaksOfCommits()) {
    found.addMatches(Kind::commitHash, commitHashRegex, line.text);
  }
}

bool looksLikeJSON(Text trimmedText) {
  const bool opens = trimmedText.front() == u'{' || trimmedText.front() == u'[';
  return opens && isJsonObjectOrArray(toUtf8(trimmedText));
}

bool looksLikeYAML(Text text) {
  constexpr int examinedLines = 12;
  LineReader lines(text);
  int examined = 0;
  int matching = 0;
  for (Text line = lines.next(); !line.empty() && examined < examinedLines; line = lines.next()) {
    if (line.starts_with(u'#')) continue;
    ++examined;
    if (!contains(line, u":")) continue;
    if (yamlKeyValueRegex.isFoundIn(line) || yamlListItemRegex.isFoundIn(line)) ++matching;
  }
  return matching >= 2;
}

}  // namespace

std::vector<TerminalOutputInsight> TerminalOutputInsightAnalyzer::insights(std::string_view text) {
  const std::u16string wide = toUtf16(text);
  const Text content = trimmed(Text(wide));
  if (content.empty()) return {};
  Collector found;
  const Text firstLine = LineReader(content).next();
  if (looksLikeJSON(content)) found.add(Kind::json, u"JSON", firstLine);
  if (looksLikeYAML(content)) found.add(Kind::yaml, u"YAML", firstLine);
  LineReader lines(content);
  std::u16string lower;
  for (Text line = lines.next(); !line.empty(); line = lines.next()) {
    lowerCase(line, lower);
    collectFromLine({line, lower}, found);
  }
  return found.insights();
}

bool TerminalOutputInsightAnalyzer::hasErrorSignal(std::string_view text) {
  const std::u16string wide = toUtf16(text);
  LineReader lines{Text(wide)};
  std::u16string lower;
  for (Text line = lines.next(); !line.empty(); line = lines.next()) {
    lowerCase(line, lower);
    const Line candidate{line, lower};
    if (candidate.isError() || candidate.isStackTrace()) return true;
  }
  return false;
}

std::optional<TerminalOutputSummary> TerminalOutputInsightAnalyzer::outputSummary(std::string_view text) {
  const std::vector<TerminalOutputInsight> found = insights(text);
  const auto first = [&](Kind kind, std::string TerminalOutputInsight::*part) -> std::optional<std::string> {
    for (const TerminalOutputInsight& insight : found) {
      if (insight.kind == kind) return insight.*part;
    }
    return std::nullopt;
  };
  TerminalOutputSummary summary;
  for (std::size_t index = 0; index < outputInsightKindCount; ++index) {
    const Kind kind = static_cast<Kind>(index);
    if (first(kind, &TerminalOutputInsight::line)) summary.insightKinds.push_back(kind);
  }
  summary.errorLine = first(Kind::error, &TerminalOutputInsight::line);
  summary.warningLine = first(Kind::warning, &TerminalOutputInsight::line);
  summary.url = first(Kind::url, &TerminalOutputInsight::value);
  summary.filePath = first(Kind::filePath, &TerminalOutputInsight::value);
  summary.commitHash = first(Kind::commitHash, &TerminalOutputInsight::value);
  summary.stackTraceLine = first(Kind::stackTrace, &TerminalOutputInsight::line);
  if (summary.isEmpty()) return std::nullopt;
  return summary;
}

}  // namespace velotide
