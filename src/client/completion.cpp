#include "client/completion.h"

#include <string_view>

#include "client/printing.h"

namespace velotide::client {

namespace {

using Commands = std::vector<CompletedCommand>;

constexpr std::string_view sessionList = "velotide ls --ids 2>/dev/null";
constexpr std::string_view shells = "bash zsh fish";

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::string names(const Commands& commands) {
  std::string text;
  for (const CompletedCommand& command : commands) text += (text.empty() ? "" : " ") + command.name;
  return text;
}

std::string quoted(std::string_view text) {
  std::string inside;
  for (const char letter : text) inside += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
  return "'" + inside + "'";
}

constexpr std::string_view bashHead =
    R"script(# velotide completion bash > ~/.local/share/bash-completion/completions/velotide
_velotide() {
  local word=${COMP_WORDS[COMP_CWORD]} command= options= words= index
  for ((index = 1; index < COMP_CWORD; index++)); do
    case ${COMP_WORDS[index]} in
      --root) ((index++)) ;;
      -*) ;;
      *) command=${COMP_WORDS[index]}; break ;;
    esac
  done
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
  text += "    '') words='" + names(commands) + "' options='--root --quiet --version --help' ;;\n";
  for (const CompletedCommand& command : commands) {
    const std::string_view words = command.takesSessions          ? "sessions"
                                   : command.takesProgram         ? "programs"
                                   : command.name == "completion" ? shells
                                                                  : "";
    text += "    " + command.name + ") words='" + std::string(words) + "' options='" +
            joined(command.options) + "' ;;\n";
  }
  return text.append(bashTail);
}

std::string zsh(const Commands& commands) {
  std::string text =
      "#compdef velotide\n# velotide completion zsh > \"${fpath[1]}/_velotide\"\n_velotide() {\n"
      "  local -a commands sessions options\n  commands=(\n";
  for (const CompletedCommand& command : commands)
    text += "    " + quoted(command.name + ":" + command.description) + "\n";
  text +=
      "  )\n  if (( CURRENT == 2 )); then\n    _describe command commands\n    return\n  fi\n  case "
      "$words[2] in\n";
  for (const CompletedCommand& command : commands) {
    text += "    " + command.name + ") options=(" + joined(command.options) + ")";
    if (command.takesSessions) text += "; sessions=(${(f)\"$(" + std::string(sessionList) + ")\"})";
    if (command.takesProgram)
      text += "; [[ $PREFIX == -* ]] || { shift words; (( CURRENT-- )); _normal; return; }";
    if (command.name == "completion") text += "; _values shell " + std::string(shells);
    text += " ;;\n";
  }
  return text +
         "  esac\n  [[ $PREFIX == -* ]] && compadd -a options\n"
         "  (( $#sessions )) && _describe -M 'm:{a-z}={A-Z}' session sessions\n  return 0\n}\n"
         "if [[ $funcstack[1] == _velotide ]]; then\n  _velotide \"$@\"\nelse\n  compdef _velotide "
         "velotide\nfi\n";
}

std::string fish(const Commands& commands) {
  std::string text =
      "# velotide completion fish > ~/.config/fish/completions/velotide.fish\n"
      "complete -c velotide -l root -r -d 'Directory of the service'\n"
      "complete -c velotide -s q -l quiet -d 'Say nothing but results and errors'\n";
  for (const CompletedCommand& command : commands) {
    text += "complete -c velotide -n __fish_use_subcommand -f -a " + command.name + " -d " +
            quoted(command.description) + "\n";
    const std::string within = "complete -c velotide -n '__fish_seen_subcommand_from " + command.name + "' ";
    if (command.takesSessions) text += within + "-f -a '(" + std::string(sessionList) + ")'\n";
    if (command.takesProgram) text += within + "-a '(__fish_complete_subcommand)'\n";
    if (command.name == "completion") text += within + "-f -a '" + std::string(shells) + "'\n";
    for (const std::string& option : command.options) {
      if (option.starts_with("--")) text += within + "-l " + option.substr(2) + "\n";
    }
  }
  return text;
}

}  // namespace

int printCompletion(const std::string& shell, const std::vector<CompletedCommand>& commands) {
  print(shell == "bash" ? bash(commands) : shell == "zsh" ? zsh(commands) : fish(commands));
  return 0;
}

}  // namespace velotide::client
