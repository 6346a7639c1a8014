#include "commands/output_insights.h"

#include <gtest/gtest.h>

#include "base/record.h"
#include "commands/output_pattern.h"
#include "commands/relative_path.h"
#include "commands/unicode_text.h"
#include "support/repeated_text.h"

namespace velotide {
namespace {

using Analyzer = TerminalOutputInsightAnalyzer;

std::string described(const std::string& text) {
  std::string list;
  for (const auto& insight : Analyzer::insights(text))
    list += std::string(rawWord(insight.kind)) + "(" + insight.value + ")";
  return list;
}

TEST(OutputInsights, FindsWhatEachRuleDescribes) {
  const std::string hash = "0123456789abcdef0123456789abcdef01234567";
  const std::string accent = "e\xcc\x81";
  const std::string family = "\xf0\x9f\x91\xa9\xe2\x80\x8d\xf0\x9f\x91\xa7";
  const std::string wide = "error " + repeat(accent, 100) + repeat(family, 100);
  struct Row {
    const char* name;
    std::string text, found;
  };
  for (const Row& row :
       {Row{"failure with a link", "Build FAILED: https://ci.example/1.\n",
            "error(Build FAILED: https://ci.example/1.)url(https://ci.example/1)filePath(/ci.example/1)"},
        Row{"several kinds, trimmed", "  warn: fatal  \n", "error(warn: fatal)warning(warn: fatal)"},
        Row{"line ends", "an error\xe2\x80\xa9Warning\x0bTraceback\xc2\x85x",
            "error(an error)warning(Warning)stackTrace(Traceback)"},
        Row{"frames", "at main.c\nthat at x\natx\nat", "stackTrace(at main.c)"},
        Row{"lower case of other letters", "stac\xe2\x84\xaa trace", "stackTrace(stac\xe2\x84\xaa trace)"},
        Row{"links", "<http://a/b?c=1,2> 'https://x]' http://",
            "url(http://a/b?c=1,2)url(https://x)filePath(/a/b)filePath(/x)"},
        Row{"absolute paths", "(/usr/lib:12:3); x/no /a b,", "filePath(/usr/lib:12:3)filePath(/a b)"},
        Row{"relative paths", "see src/a.cpp:10:2 and ../b/c.py \xc3\xa9/d.rs",
            "filePath(src/a.cpp:10:2 and ../b/c.py \xc3\xa9/d.rs)"},
        Row{"relative path", "in src/x/a.swift:10: no", "filePath(src/x/a.swift:10)"},
        Row{"commits", "Commit " + hash + " ABCDEF0 abcdef", "commitHash(" + hash + ")"},
        Row{"commit of other letters", "ha\xc5\xbfh " + hash, "commitHash(" + hash + ")"},
        Row{"object", "{\"name\":\n 1}", "json(JSON)"},
        Row{"invalid byte in an object", "{\"a\":\"\xff\"}", "json(JSON)"},
        Row{"yaml", "# c\nname: x\n\n- version: 1", "yaml(YAML)"},
        Row{"cut by characters", wide, "error(error " + repeat(accent, 100) + repeat(family, 74) + ")"},
        Row{"same line once", "error\nerror\nerror x", "error(error)error(error x)"},
        Row{"three of a kind", "error 0\nerror 1\nerror 2\nerror 3",
            "error(error 0)error(error 1)error(error 2)"},
        Row{"three paths of a line", "/a;/b;/c;/d", "filePath(/a)filePath(/b)filePath(/c)"},
        Row{"one long path", repeat("/a", 8000), "filePath(" + repeat("/a", 8000) + ")"},
        Row{"same path often", repeat("/a;", 2000), "filePath(/a)"}})
    EXPECT_EQ(described(row.text), row.found) << row.name;
  for (const std::string& text : std::vector<std::string>{
           " \n\t\r\n\xc2\xa0\xe2\x80\xa8", "all is well\nhello", "src/a.o lib/b.so", hash + " recommit",
           "{a}", "name: x\nversion:", repeat("word\n", 11) + "a: 1\nb: 2"})
    EXPECT_EQ(described(text), "");
}

TEST(OutputPattern, GivesUpOnHostileLinesOnly) {
  OutputPattern pattern(relativePathPattern);
  OutputPattern greedy(u"(?:a|b)*c");
  const auto search = [&](const std::string& text) {
    const std::u16string line = toUtf16(text);
    OutputPattern::Matches matches = (text.ends_with("c") ? greedy : pattern).matchesIn(line);
    const bool found = matches.next().has_value();
    return std::pair(found, matches.gaveUp());
  };
  EXPECT_EQ(search(repeat("a/a", 5400)), std::pair(false, true));
  EXPECT_EQ(search(repeat("a/a", 5400) + ".md"), std::pair(true, false));
  EXPECT_EQ(search(repeat("all is well ", 1300)), std::pair(false, false));
  EXPECT_EQ(search(std::string(200000, 'a') + "c"), std::pair(false, true)) << "its stack, not its steps";
}

TEST(OutputSummary, WritesItsTexts) {
  const auto summary = Analyzer::outputSummary("see https://x.y\nerror: no\nerror 2\nrev abcdef0");
  ASSERT_TRUE(summary);
  EXPECT_EQ(summary->aiContextText(),
            "Output insight kinds: error, url, filePath, commitHash\nOutput error: error: no\n"
            "Output URL: https://x.y\nOutput path: /x.y\nOutput commit: abcdef0");
  EXPECT_EQ(summary->searchableText(),
            "error url filePath commitHash\nerror: no\n\nhttps://x.y\n/x.y\nabcdef0\n");
  EXPECT_EQ(summary->primaryDiagnosticLine(), "error: no");
  EXPECT_EQ(Analyzer::outputSummary("src/a.go")->primaryDiagnosticLine(), "src/a.go");
  EXPECT_EQ(Analyzer::outputSummary(" fine "), std::nullopt);
}

TEST(FormattedJSON, KeepsOrderAndSpelling) {
  EXPECT_EQ(Analyzer::formattedJSON(R"( {"b":[1.50, {}],"a" : "x\":,{\u00e9" ,"c":[ ]} )"),
            "{\n  \"b\": [\n    1.50,\n    {}\n  ],\n  \"a\": \"x\\\":,{\\u00e9\",\n  \"c\": []\n}");
  EXPECT_EQ(Analyzer::formattedJSON("1"), std::nullopt);
  EXPECT_EQ(Analyzer::summary("[1]\n"), "formattedJSON:\n[\n  1\n]");
  EXPECT_EQ(Analyzer::summary("error a\nerror b\n/c"), "error:\n- error a\n- error b\n\nfilePath:\n- /c");
}

TEST(FormattedJSON, IsCutWhateverItWouldGrowTo) {
  for (const std::string& text :
       {"[\"" + std::string(7000, 'x') + "\"]", std::string(8000, '[') + "1" + std::string(8000, ']')}) {
    const std::string formatted = *Analyzer::formattedJSON(text);
    EXPECT_EQ(formatted.size(), 6004u);
    EXPECT_TRUE(formatted.ends_with("\n..."));
  }
  const std::string fits = "[\"" + std::string(6000 - 8, 'x') + "\"]";
  EXPECT_EQ(Analyzer::formattedJSON(fits)->size(), 6000u);
}

}  // namespace
}  // namespace velotide
