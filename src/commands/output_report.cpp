#include "base/json_document.h"
#include "base/record.h"
#include "commands/output_insights.h"
#include "commands/unicode_text.h"

namespace velotide {

namespace {

using Analyzer = TerminalOutputInsightAnalyzer;
using Kind = TerminalOutputInsightKind;

bool isJsonSpace(char character) {
  return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

// Lays out a valid JSON text anew. What stands inside texts and numbers is kept as it was written.
class JsonLayout {
 public:
  explicit JsonLayout(std::string_view text) : text_(text) {}

  // Stops early once the white space alone exceeds what may be shown: deep nesting would otherwise make of
  // every input a quadratic output.
  std::string run() {
    for (at_ = 0; at_ < text_.size() && spaces_ <= Analyzer::maximumFormattedCharacters; ++at_) step();
    return std::move(out_);
  }

 private:
  void step() {
    const char character = text_[at_];
    if (inText_) {
      out_ += character;
      if (character == '\\') out_ += text_[++at_];
      inText_ = character != '"';
      return;
    }
    switch (character) {
      case ' ':
      case '\t':
      case '\n':
      case '\r':
        return;
      case '{':
      case '[':
        return open(character);
      case '}':
      case ']':
        --depth_;
        startLine();
        break;
      case '"':
        inText_ = true;
        break;
      default:
        break;
    }
    out_ += character;
    if (character == ',') startLine();
    if (character == ':') out_ += ' ';
  }

  void open(char bracket) {
    out_ += bracket;
    std::size_t next = at_ + 1;
    while (isJsonSpace(text_[next])) ++next;
    if (text_[next] == '}' || text_[next] == ']') {
      out_ += text_[next];
      at_ = next;
      return;
    }
    ++depth_;
    startLine();
  }

  void startLine() {
    out_ += '\n';
    out_.append(2 * depth_, ' ');
    spaces_ += 1 + 2 * depth_;
  }

  std::string_view text_;
  std::size_t at_ = 0;
  std::size_t depth_ = 0;
  std::size_t spaces_ = 0;
  bool inText_ = false;
  std::string out_;
};

}  // namespace

std::optional<std::string> TerminalOutputInsightAnalyzer::formattedJSON(std::string_view text) {
  const std::string content = toUtf8(toUtf16(trimmed(text)));
  if (!isJsonObjectOrArray(content)) return std::nullopt;
  const std::u16string layout = toUtf16(JsonLayout(content).run());
  const std::u16string_view shown = firstCharacters(layout, maximumFormattedCharacters);
  return toUtf8(shown) + (shown.size() < layout.size() ? "\n..." : "");
}

std::string TerminalOutputInsightAnalyzer::summary(std::string_view text) {
  const std::vector<TerminalOutputInsight> found = insights(text);
  std::string report;
  for (std::size_t index = 0; index < outputInsightKindCount; ++index) {
    const Kind kind = static_cast<Kind>(index);
    std::string section;
    for (const TerminalOutputInsight& insight : found) {
      if (insight.kind == kind) section += "\n- " + (kind == Kind::yaml ? insight.line : insight.value);
    }
    if (section.empty()) continue;
    if (!report.empty()) report += "\n\n";
    if (kind == Kind::json) {
      report += "formattedJSON:\n" + formattedJSON(text).value_or("");
    } else {
      report += std::string(rawWord(kind)) + ":" + section;
    }
  }
  return report;
}

}  // namespace velotide
