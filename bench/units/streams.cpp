#include "streams.h"

#include <cstdint>

namespace velotide {

namespace {

constexpr std::size_t capturedOutput = 16'384;

std::string repeated(std::string_view piece, std::size_t size) {
  std::string text;
  while (text.size() + piece.size() <= size) text += piece;
  return text;
}

std::string mixed(std::string_view pieces, std::size_t size) {
  std::string text;
  std::uint32_t state = 7;
  while (text.size() < size) {
    state = state * 1664525 + 1013904223;
    text += pieces[(state >> 16) % pieces.size()];
  }
  return text;
}

std::string buildLog() {
  std::string log;
  for (int step = 1; log.size() < capturedOutput; ++step) {
    const std::string number = std::to_string(step);
    log += "[" + number + "/480] Building CXX object src/CMakeFiles/server.dir/net/session_" + number +
           ".cpp.o\n";
    if (step % 7 == 0) {
      log += "/home/user/project/src/net/session_" + number +
             ".cpp:118:23: warning: unused variable 'count' [-Wunused-variable]\n"
             "  118 |   const std::size_t count = buffer.size();\n      |                     ^~~~~\n";
    }
  }
  return log.substr(0, capturedOutput);
}

// Long lines with few known extensions, so that the caps are never reached.
std::string linkLog() {
  std::string log;
  for (int unit = 0; log.size() < capturedOutput; ++unit) {
    log += "g++ -O2 -pthread -o out/tool" + std::to_string(unit);
    for (int object = 0; object < 40; ++object) log += " out/obj/unit" + std::to_string(object) + ".o";
    log += " -L/usr/lib -lz -lm\n";
  }
  return log.substr(0, capturedOutput);
}

std::string proseLog() {
  return repeated("Compiling module with 12 of 80 units done, nothing remarkable so far\n", capturedOutput);
}

std::string lines(std::string_view unit, std::size_t length, std::string_view ending) {
  return repeated(repeated(unit, length) + std::string(ending) + "\n", capturedOutput);
}

}  // namespace

std::vector<NamedText> outputStreams(std::size_t size) {
  const std::string mark = "\x1b]777;Velotide;";
  return {
      {"plain", repeated("The quick brown fox jumps over the lazy dog, as it does on each line.\r\n", size)},
      {"colour", repeated("\x1b[31mabcde", size)},
      {"marks", repeated(mark + "start=6d616b6520616c6c\amake: done\r\n" + mark + "end=0\a", size)},
      {"bare-marks", repeated(mark + "end=0\a", size)},
      {"open-mark", mark + repeated("start=6d616b65", size)},
      {"long-marks", repeated(mark + "shell=" + std::string(30'000, 'x') + "\a", size)},
      {"long-marks-escapes", repeated(mark + "shell=" + repeated("x\x1b", 30'000) + "\a", size)},
      {"prefixes", repeated(mark, size)},
      {"escapes", repeated("\x1b", size)},
      {"controls", mixed("\x1b\x1b\x1b[[]P\\\a\x18mabc0;\r\n", size)},
      {"random", mixed(std::string_view("\x1b]777;Velotide;\a\\ start=end\x80\xff\n", 30), size)},
  };
}

std::vector<NamedText> commandOutputs() {
  const std::string hash = "0123456789abcdef0123456789abcdef01234567 ";
  std::vector<NamedText> outputs = {
      {"build-log", buildLog()},
      {"link-log", linkLog()},
      {"prose", proseLog()},
      {"one-line-segments", repeated("a/a", capturedOutput - 8) + "/.md"},
      {"one-line-words", repeated("a.", capturedOutput - 8) + " /.md"},
      {"one-line-spaced", repeated(" /a", capturedOutput - 8) + "/.md"},
      {"one-line-dots", "a/" + repeated(".m/", capturedOutput - 8)},
      {"same-path", repeated("/a;", capturedOutput)},
      {"same-path-twin-lines", repeated(repeated("//x", 8000) + "\n", capturedOutput)},
      {"same-link", repeated("http://a ", capturedOutput)},
      {"hashes", "commit " + repeated(hash, capturedOutput - 8)},
      {"hex", "commit " + repeated("a", capturedOutput - 8)},
      {"colons", repeated(repeated("a :", 1300) + "\n", capturedOutput)},
      {"spaces", repeated("at" + std::string(1300, ' ') + "\n", capturedOutput)},
      {"brackets", std::string(capturedOutput, '[')},
      {"accents", repeated("rev \xc3\xa9/\xc3\xa9.\xc3\xa9 \n", capturedOutput)},
      {"empty-lines", std::string(capturedOutput, '\n')},
      {"one-letter-lines", repeated("a\n", capturedOutput)},
      {"short-paths", repeated("a/a.m/\n", capturedOutput)},
  };
  for (const std::size_t length : {50, 100, 200, 400, 600, 800, 1600, 4000}) {
    outputs.push_back({"lines-" + std::to_string(length), lines("a/", length, "/.md")});
  }
  return outputs;
}

}  // namespace velotide
