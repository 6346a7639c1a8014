#include "client/completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iterator>
#include <sstream>
#include <string_view>
#include <vector>

#include "agents/agent_snapshot.h"
#include "client/printing.h"

namespace velotide::client {

namespace {

// What is expected somewhere is a choice of words, or of a kind: commands, sessions, programs or directories.
struct CompletedOption {
  std::string name;
  std::string description;
  // Of one letter; empty where it has none.
  std::string shortName;
  bool takesValue = false;
  std::string expected;
};

// What shells complete behind one command, or on the line before there is one.
struct CompletedCommand {
  // With the command it is a verb of: "agent report".
  std::string name;
  std::string description;
  std::vector<CompletedOption> options;
  std::string expected;

  bool isCommand() const { return !name.empty() && name.find(' ') == std::string::npos; }
  // A choice is made once; sessions and programs may be more.
  bool isChoice() const { return expected != "sessions" && expected != "programs" && !expected.empty(); }
};

using Commands = std::vector<CompletedCommand>;

std::string joined(const auto& words, const auto& textOf) {
  std::string text;
  for (const auto& word : words) text += (text.empty() ? "" : " ") + std::string(textOf(word));
  return text;
}

std::string namesOf(const auto& named) {
  return joined(named, [](const auto& one) { return one.name; });
}

// What a label in the help stands for.
std::string expectedFor(const std::string& label) {
  if (label == "SESSION") return "sessions";
  if (label == "DIRECTORY") return "directories";
  if (label == "ACTIVITY")
    return joined(rawWords(TerminalAgentActivity{}), [](const char* word) { return word; });
  return "";
}

// The words of a description that is nothing but a choice, like "bash, zsh or fish".
std::string choiceIn(const std::string& description) {
  std::istringstream text(description);
  std::vector<std::string> words(std::istream_iterator<std::string>(text), {});
  if (words.size() < 3 || words[words.size() - 2] != "or") return "";
  words.erase(words.end() - 2);
  for (std::size_t index = 0; index < words.size(); ++index) {
    std::string& word = words[index];
    if (index + 2 < words.size() && word.ends_with(',')) word.pop_back();
    if (!std::ranges::all_of(word,
                             [](char letter) { return (letter >= 'a' && letter <= 'z') || letter == '_'; }))
      return "";
  }
  return joined(words, [](const std::string& word) { return word; });
}

CompletedOption describe(const CLI::Option& option) {
  const std::vector<std::string>& letters = option.get_snames();
  return {"--" + option.get_lnames().front(), option.get_description(),
          letters.empty() ? "" : "-" + letters.front(), option.get_items_expected_max() > 0,
          expectedFor(option.get_type_name())};
}

CompletedCommand describe(const CLI::App& app, const std::string& name) {
  CompletedCommand known{name, app.get_description(), {}, {}};
  for (const CLI::Option* option : app.get_options()) {
    if (!option->get_positional())
      known.options.push_back(describe(*option));
    else if (known.expected.empty())
      known.expected = expectedFor(option->get_name()) + choiceIn(option->get_description());
  }
  const std::vector<const CLI::App*> verbs = app.get_subcommands({});
  if (!verbs.empty()) known.expected = joined(verbs, [](const CLI::App* verb) { return verb->get_name(); });
  if (app.get_prefix_command()) known.expected = name == "restart" ? "sessions" : "programs";
  return known;
}

void addVerbs(Commands& known, const CLI::App& app, const std::string& before) {
  for (const CLI::App* verb : app.get_subcommands({})) {
    const std::string name = before + verb->get_name();
    addVerbs(known, *verb, name + " ");
    known.push_back(describe(*verb, name));
    if (!verb->get_fallthrough()) continue;
    // These take the general options of the line as their own.
    for (const CompletedOption& option : known.front().options) {
      if (option.name != "--help" && option.name != "--version") known.back().options.push_back(option);
    }
  }
}

// The command line before there is a command, under an empty name, and its commands; verbs of a command stand
// before it.
Commands describeAll(const CLI::App& app) {
  Commands known{describe(app, "")};
  addVerbs(known, app, "");
  return known;
}

std::string inQuotes(std::string_view text) {
  std::string inside;
  for (const char letter : text) inside += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
  return "'" + inside + "'";
}

// What bash and zsh spell in the same way: the options of the line, and what its next word may be.
std::string cases(const Commands& commands) {
  std::string text = "  case $line in\n";
  for (const CompletedCommand& command : commands) {
    const std::string name = inQuotes(command.name);
    text += "    " + name + (command.name.empty() ? "" : " | " + inQuotes(command.name + " ") + "*") + ")\n";
    text += "      options=" + inQuotes(namesOf(command.options)) + "\n";
    if (!command.expected.empty())
      text += std::string("      ") + (command.isChoice() ? "[[ $line == " + name + " ]] && " : "") +
              "expected=" + inQuotes(command.expected) + "\n";
    text += "      case $before in\n";
    for (const CompletedOption& option : command.options) {
      if (!option.takesValue) continue;
      text += "        " + option.name + (option.shortName.empty() ? "" : " | " + option.shortName) +
              ") expected=" + inQuotes(option.expected) + " ;;\n";
    }
    text += "      esac\n      ;;\n";
  }
  return text += "  esac\n";
}

constexpr std::string_view bashHead =
    R"script(# velotide completion bash > ~/.local/share/bash-completion/completions/velotide
_velotide() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} line= options= expected= index
  local -x VELOTIDE_ROOT=$VELOTIDE_ROOT
  COMPREPLY=()
  for ((index = 1; index < COMP_CWORD; index++)); do
    case ${COMP_WORDS[index]} in
      --root)
        [[ ${COMP_WORDS[index + 1]} == = ]] && ((index++))
        VELOTIDE_ROOT=${COMP_WORDS[++index]/#\~/$HOME}
        ;;
      -*) ;;
      *) line+=${line:+ }${COMP_WORDS[index]} ;;
    esac
  done
)script";

constexpr std::string_view bashTail = R"script(  [[ $word == -* ]] && expected=$options
  case $expected in
    sessions) expected=$(velotide ls --ids 2>/dev/null) word=$(tr a-f A-F <<<"$word") ;;
    programs) expected=$(compgen -c -- "$word") ;;
    directories)
      # Where there is no compopt, as in bash 3.2, names of files are completed, and quoted.
      local IFS=$'\n'
      compopt -o filenames 2>/dev/null && COMPREPLY=($(compgen -d -- "$word"))
      return
      ;;
  esac
  COMPREPLY=($(compgen -W "$expected" -- "$word"))
}
complete -o default -F _velotide velotide
)script";

std::string bash(const Commands& commands) {
  return std::string(bashHead).append(cases(commands)).append(bashTail);
}

constexpr std::string_view zshHead = R"script(#compdef velotide
# velotide completion zsh > "${fpath[1]}/_velotide"
_velotide() {
  local line= before=$words[CURRENT-1] options= expected= index at
  local -a verbs sessions
  local -x VELOTIDE_ROOT=$VELOTIDE_ROOT
  for ((index = 2; index < CURRENT; index++)); do
    case $words[index] in
      --root) VELOTIDE_ROOT=${words[++index]/#\~/$HOME} ;;
      --root=*) VELOTIDE_ROOT=${${words[index]#--root=}/#\~/$HOME} ;;
      -*) ;;
      *) line+=${line:+ }$words[index]; at=${at:-$index} ;;
    esac
  done
  verbs=(
)script";

// A program's own command line begins behind the options of the command.
constexpr std::string_view zshTail = R"script(  if [[ $expected == programs ]]; then
    while (( at + 1 < CURRENT )) && [[ $words[at+1] == -* ]]; do
      [[ $words[at+1] == (-C|--directory|--detach-key|--root) ]] && (( at++ ))
      (( at++ ))
    done
    if (( at < CURRENT )) && [[ at+1 -lt CURRENT || $PREFIX != -* ]]; then
      shift $at words
      (( CURRENT -= at ))
      _normal
      return
    fi
  fi
  [[ $PREFIX == -* ]] && expected=$options
  case $expected in
    commands) _describe command verbs ;;
    sessions)
      sessions=(${(f)"$(velotide ls --ids 2>/dev/null)"})
      _describe session sessions -M 'm:{a-z}={A-Z}'
      ;;
    directories) _files -/ ;;
    programs) ;;
    *) compadd -- ${=expected} ;;
  esac
}
if [[ $funcstack[1] == _velotide ]]; then
  _velotide "$@"
else
  compdef _velotide velotide
fi
)script";

std::string zsh(Commands commands) {
  // With their descriptions.
  commands.front().expected = "commands";
  std::string text(zshHead);
  for (const CompletedCommand& command : commands) {
    if (command.isCommand()) text += "    " + inQuotes(command.name + ":" + command.description) + "\n";
  }
  return text + "  )\n" + cases(commands).append(zshTail);
}

constexpr std::string_view fishHead =
    R"script(# velotide completion fish > ~/.config/fish/completions/velotide.fish
# The words on the line that are no options.
function __velotide_line
  set -l words (commandline -opc)
  set -l line
  set -e words[1]
  while set -q words[1]
    switch $words[1]
      case --root
        set -e words[1]
      case '-*'
      case '*'
        set -a line $words[1]
    end
    set -e words[1]
  end
  echo "$line"
end
function __velotide_at
  test (__velotide_line) = "$argv"
end
function __velotide_within
  string match -q -- "$argv *" (__velotide_line)' '
end
function __velotide_sessions
  set -lx VELOTIDE_ROOT $VELOTIDE_ROOT
  set -l words (commandline -opc)
  set -l at (contains -i -- --root $words)
  and set VELOTIDE_ROOT (string replace -r '^~' ~ -- $words[(math $at + 1)])
  set -l given (string replace -fr -- '^--root=' '' $words)
  and set VELOTIDE_ROOT $given
  velotide ls --ids 2>/dev/null
end
)script";

std::string fishExpecting(const std::string& expected) {
  if (expected == "programs") {
    return " -a '(__fish_complete_subcommand --fcs-skip=2 -C --directory --detach-key --root)'";
  }
  if (expected == "sessions") return " -f -a '(__velotide_sessions)'";
  if (expected == "directories") return " -f -a '(__fish_complete_directories)'";
  return expected.empty() ? "" : " -f -a " + inQuotes(expected);
}

std::string fish(const Commands& commands) {
  const std::string condition = "complete -c velotide -n ";
  std::string text(fishHead);
  text += condition + "\"__velotide_at ''\" -f\n";
  for (const CompletedCommand& command : commands) {
    const std::string within = condition + "\"__velotide_within '" + command.name + "'\"";
    const std::string at = condition + "\"__velotide_at '" + command.name + "'\"";
    if (command.isCommand())
      text += condition + "\"__velotide_at ''\" -f -a " + command.name + " -d " +
              inQuotes(command.description) + "\n";
    if (!command.name.empty() && !command.expected.empty())
      text += (command.isChoice() ? at : within) + fishExpecting(command.expected) + "\n";
    for (const CompletedOption& option : command.options) {
      text += (command.name.empty() ? at : within) + " -l " + option.name.substr(2);
      if (!option.shortName.empty()) text += " -s " + option.shortName.substr(1);
      if (option.takesValue) text += " -x" + fishExpecting(option.expected);
      text += " -d " + inQuotes(option.description) + "\n";
    }
  }
  return text;
}

}  // namespace

int printCompletion(const std::string& shell, CLI::App& app) {
  const Commands commands = describeAll(app);
  print(shell == "bash" ? bash(commands) : shell == "zsh" ? zsh(commands) : fish(commands));
  return 0;
}

}  // namespace velotide::client
