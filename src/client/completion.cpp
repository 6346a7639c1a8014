#include "client/completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>
#include <vector>

#include "agents/agent_snapshot.h"
#include "client/printing.h"

namespace velotide::client {

namespace {

struct CompletedOption {
  std::string name;
  bool takesValue = false;
  // What may stand behind it, where that is a choice of a few.
  std::string values;
};

// What shells complete of one command, or of the line before there is one.
struct CompletedCommand {
  std::string name;
  std::string description;
  std::vector<CompletedOption> options;
  // Words that are no options: these, sessions, or the words of another command line.
  std::string words;
  bool takesSessions = false;
  bool takesProgram = false;
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

void addOptions(CompletedCommand& known, const CLI::App& app) {
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_positional()) known.takesSessions |= option->get_name() == "SESSION";
    for (const std::string& name : option->get_lnames())
      known.options.push_back({"--" + name, option->get_items_expected_max() > 0, {}});
  }
}

CompletedCommand describe(CLI::App& app) {
  CompletedCommand known{app.get_name(), app.get_description(), {}, {}, false, false};
  addOptions(known, app);
  const std::vector<CLI::App*> verbs = app.get_subcommands({});
  known.words = joined(verbs, [](const CLI::App* verb) { return verb->get_name(); });
  const auto itself = [](const char* word) { return word; };
  if (known.name == "completion") known.words = joined(completedShells, itself);
  for (CompletedOption& option : known.options) {
    if (option.name == "--agent") option.values = joined(rawWords(TerminalAgentActivity{}), itself);
  }
  known.takesSessions |= known.name == "restart";
  known.takesProgram = known.name == "new" || known.name == "run";
  return known;
}

// The command line before there is a command, under an empty name, and its commands.
Commands describeAll(CLI::App& app) {
  Commands known{describe(app)};
  known.front().name.clear();
  for (CLI::App* command : app.get_subcommands({})) {
    known.push_back(describe(*command));
    // These take the general options of the line as their own.
    if (!command->get_fallthrough()) continue;
    for (const CompletedOption& option : known.front().options) {
      if (option.name != "--help" && option.name != "--version") known.back().options.push_back(option);
    }
  }
  return known;
}

std::string inQuotes(std::string_view text) {
  std::string inside;
  for (const char letter : text) inside += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
  return "'" + inside + "'";
}

constexpr std::string_view bashHead =
    R"script(# velotide completion bash > ~/.local/share/bash-completion/completions/velotide
_velotide() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command= options= words= index
  local -x VELOTIDE_ROOT=$VELOTIDE_ROOT
  for ((index = 1; index < COMP_CWORD; index++)); do
    case ${COMP_WORDS[index]} in
      --root)
        [[ ${COMP_WORDS[index + 1]} == = ]] && ((index++))
        VELOTIDE_ROOT=${COMP_WORDS[++index]/#\~/$HOME}
        ;;
      -*) ;;
      *) command=${command:-${COMP_WORDS[index]}} ;;
    esac
  done
  case $before in
    --root | --directory | -C) COMPREPLY=($(compgen -d -- "$word")); return ;;
  esac
  case $command in
)script";

constexpr std::string_view bashTail = R"script(  esac
  if [[ $word == -* ]]; then
    words=$options
  elif [[ $words == sessions ]]; then
    words=$(velotide ls --ids 2>/dev/null) word=${word^^}
  elif [[ $words == programs ]]; then
    words=$(compgen -c -- "$word")
  fi
  COMPREPLY=($(compgen -W "$words" -- "$word"))
}
complete -o default -F _velotide velotide
)script";

std::string bash(const Commands& commands) {
  std::string text(bashHead);
  for (const CompletedCommand& command : commands) {
    const std::string words = command.takesSessions  ? "sessions"
                              : command.takesProgram ? "programs"
                                                     : command.words;
    text += "    " + inQuotes(command.name) + ") words='" + words + "' options='" + namesOf(command.options) +
            "'";
    for (const CompletedOption& option : command.options) {
      if (!option.values.empty())
        text += "; [[ $before == " + option.name + " ]] && words='" + option.values + "'";
    }
    text += " ;;\n";
  }
  return text.append(bashTail);
}

constexpr std::string_view zshHead = R"script(#compdef velotide
# velotide completion zsh > "${fpath[1]}/_velotide"
_velotide() {
  local -a commands sessions options choices
  local command= index at
  local -x VELOTIDE_ROOT=$VELOTIDE_ROOT
  for ((index = 2; index < CURRENT; index++)); do
    case $words[index] in
      --root) VELOTIDE_ROOT=${words[++index]/#\~/$HOME} ;;
      --root=*) VELOTIDE_ROOT=${${words[index]#--root=}/#\~/$HOME} ;;
      -*) ;;
      *) [[ -n $command ]] || { command=$words[index]; at=$index; } ;;
    esac
  done
  case $words[CURRENT-1] in
    --root|--directory|-C) _files -/; return ;;
  esac
  commands=(
)script";

// A program's own command line begins behind the options of the command.
constexpr std::string_view zshProgram = R"script(
      while (( at + 1 < CURRENT )) && [[ $words[at+1] == -* ]]; do
        [[ $words[at+1] == (-C|--directory|--detach-key|--root) ]] && (( at++ ))
        (( at++ ))
      done
      if (( at < CURRENT )) && [[ at+1 -lt CURRENT || $PREFIX != -* ]]; then
        shift $at words
        (( CURRENT -= at ))
        _normal
        return
      fi)script";

constexpr std::string_view zshTail = R"script(  esac
  [[ $PREFIX == -* ]] && compadd -a options
  (( $#choices )) && compadd -a choices
  (( $#sessions )) && _describe -M 'm:{a-z}={A-Z}' session sessions
  return 0
}
if [[ $funcstack[1] == _velotide ]]; then
  _velotide "$@"
else
  compdef _velotide velotide
fi
)script";

std::string zsh(const Commands& commands) {
  std::string text(zshHead);
  for (const CompletedCommand& command : commands) {
    if (!command.name.empty()) text += "    " + inQuotes(command.name + ":" + command.description) + "\n";
  }
  text += "  )\n  case $command in\n";
  for (const CompletedCommand& command : commands) {
    text += "    " + inQuotes(command.name) + ") options=(" + namesOf(command.options) + ")";
    if (command.name.empty())
      text += "; [[ $PREFIX == -* ]] || _describe command commands";
    else if (!command.words.empty())
      text += "; choices=(" + command.words + ")";
    if (command.takesSessions) text += "; sessions=(${(f)\"$(velotide ls --ids 2>/dev/null)\"})";
    for (const CompletedOption& option : command.options) {
      if (!option.values.empty())
        text += "; [[ $words[CURRENT-1] == " + option.name + " ]] && { choices=(" + option.values +
                "); sessions=(); }";
    }
    if (command.takesProgram) text += zshProgram;
    text += " ;;\n";
  }
  return text.append(zshTail);
}

constexpr std::string_view fishHead =
    R"script(# velotide completion fish > ~/.config/fish/completions/velotide.fish
# Whether this is the command on the line; '' where there is none yet.
function __velotide_within
  set -l words (commandline -opc)
  set -e words[1]
  set -l command ''
  while set -q words[1]
    switch $words[1]
      case --root
        set -e words[1]
      case '-*'
      case '*'
        set command $words[1]
        break
    end
    set -e words[1]
  end
  test "$command" = "$argv[1]"
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
complete -c velotide -l root -x -a '(__fish_complete_directories)' -d 'Directory of the service'
complete -c velotide -s q -l quiet -d 'Say nothing but results and errors'
)script";

std::string fish(const Commands& commands) {
  std::string text(fishHead);
  for (const CompletedCommand& command : commands) {
    const std::string within = "complete -c velotide -n \"__velotide_within '" + command.name + "'\" ";
    if (!command.name.empty())
      text += "complete -c velotide -n \"__velotide_within ''\" -f -a " + command.name + " -d " +
              inQuotes(command.description) + "\n";
    else
      text += within + "-f\n";
    if (!command.name.empty() && !command.words.empty()) text += within + "-f -a '" + command.words + "'\n";
    if (command.takesSessions) text += within + "-f -a '(__velotide_sessions)'\n";
    if (command.takesProgram) text += within + "-a '(__fish_complete_subcommand)'\n";
    for (const CompletedOption& option : command.options) {
      if (option.name == "--root" || option.name == "--quiet") continue;
      text += within + "-l " + option.name.substr(2);
      if (!option.values.empty())
        text += " -x -a '" + option.values + "'";
      else if (option.takesValue)
        text += " -r";
      text += "\n";
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
