#include "client/completion.h"

#include "client/printing.h"

namespace velotide::client {

namespace {

constexpr std::string_view bash =
    R"script(# velotide completion bash > ~/.local/share/bash-completion/completions/velotide
_velotide() {
  local word=${COMP_WORDS[COMP_CWORD]} command= index
  for ((index = 1; index < COMP_CWORD; index++)); do
    case ${COMP_WORDS[index]} in
      --root) ((index++)) ;;
      -*) ;;
      *) command=${COMP_WORDS[index]}; break ;;
    esac
  done
  case $command in
    '') COMPREPLY=($(compgen -W "new attach run ls show read commands output send resize restart close status stop completion
      --root --quiet --version --help" -- "$word")) ;;
    attach | show | read | commands | output | send | resize | restart | close)
      COMPREPLY=($(compgen -W "$(velotide ls --ids 2>/dev/null)" -- "${word^^}")) ;;
    new | run) COMPREPLY=($(compgen -c -- "$word")) ;;
    completion) COMPREPLY=($(compgen -W "bash zsh fish" -- "$word")) ;;
  esac
}
complete -o default -F _velotide velotide
)script";

constexpr std::string_view zsh = R"script(#compdef velotide
# velotide completion zsh > "${fpath[1]}/_velotide"
_velotide() {
  local -a commands sessions
  commands=(
    'new:start a session' 'attach:connect this terminal' 'run:run a program' 'ls:list sessions'
    'show:show one session' 'read:print output' 'send:type into a session' 'resize:change the size'
    'restart:start again' 'close:close sessions' 'status:show the service' 'stop:stop the service'
    'completion:print completions' 'commands:list commands that ran' 'output:print output of a command'
  )
  if (( CURRENT == 2 )); then
    _describe command commands
    return
  fi
  case $words[2] in
    attach|show|read|commands|output|send|resize|restart|close)
      sessions=(${(f)"$(velotide ls --ids 2>/dev/null)"})
      _describe -M 'm:{a-z}={A-Z}' session sessions ;;
    new|run) shift words; (( CURRENT-- )); _normal ;;
    completion) _values shell bash zsh fish ;;
  esac
}
if [[ $funcstack[1] == _velotide ]]; then
  _velotide "$@"
else
  compdef _velotide velotide
fi
)script";

constexpr std::string_view fish =
    R"script(# velotide completion fish > ~/.config/fish/completions/velotide.fish
set -l commands new attach run ls show read commands output send resize restart close status stop completion
complete -c velotide -n "not __fish_seen_subcommand_from $commands" -f -a "$commands"
complete -c velotide -l root -r -d 'directory of the service'
complete -c velotide -s q -l quiet -d 'say nothing but results and errors'
complete -c velotide -n '__fish_seen_subcommand_from attach show read commands output send resize restart close' -f \
  -a '(velotide ls --ids 2>/dev/null)'
complete -c velotide -n '__fish_seen_subcommand_from new run' -a '(__fish_complete_subcommand)'
complete -c velotide -n '__fish_seen_subcommand_from completion' -f -a 'bash zsh fish'
)script";

}  // namespace

int printCompletion(const std::string& shell) {
  print(shell == "bash" ? bash : shell == "zsh" ? zsh : fish);
  return 0;
}

}  // namespace velotide::client
