#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "client/control_sequence.h"
#include "client/sequence_scanner.h"
#include "commands/shell_integration_parser.h"

namespace velotide::client {

// What a shell with marks has on its screen since its last mark: the prompt, and whatever was typed behind
// it. Tells an empty line from one that somebody has begun. A machine: output goes in, in order.
class PromptScreen {
 public:
  enum class Phase {
    // No mark was seen.
    unknown,
    // A command runs.
    running,
    // A command has ended, and the prompt is not there yet.
    ended,
    // The prompt is being shown, or stands.
    prompt,
  };

  void take(ByteView bytes, std::uint64_t offset);

  Phase phase() const { return phase_; }
  // Whether the cursor stands right behind a prompt, with nothing typed: behind the one prompt sign on the
  // screen ("$ ", "% ", "# ", "> " or the like), and nothing but a right-hand prompt follows. What looks in
  // any way different counts as typed into, a prompt without such a sign too.
  bool isEmptyPrompt() const;
  // The shell's name, as it told; empty before.
  const std::string& shell() const { return shell_; }
  // Whether the line editor takes pasted text apart from typed keys.
  bool takesPaste() const { return takesPaste_; }

 private:
  static constexpr std::size_t maximumRows = 200;
  static constexpr std::size_t maximumColumns = 2000;

  void clear();
  void take(std::string_view sequence);
  void apply(const TerminalShellIntegrationEvent& event);
  void show(std::string_view text);
  void control(const ControlSequence& sequence);
  void erase(std::size_t from, std::size_t to);
  void moveRow(long by);
  void moveColumn(long by);
  std::u32string& row();

  TerminalShellIntegrationParser parser_;
  SequenceScanner scanner_;
  Phase phase_ = Phase::unknown;
  std::string shell_;
  bool takesPaste_ = false;
  // fish has shown that Ctrl-C was pressed: the next line begins a new prompt, without a mark.
  bool isGivenUp_ = false;
  bool isReversed_ = false;
  // The cursor went where it cannot be followed.
  bool isLost_ = false;
  std::vector<std::u32string> rows_{1};
  std::size_t row_ = 0;
  std::size_t column_ = 0;
  // A character of UTF-8 that is not complete yet.
  char32_t character_ = 0;
  int missingBytes_ = 0;
};

}  // namespace velotide::client
