# Start-up file of a zsh that is started with ZDOTDIR naming this folder. Gives
# ZDOTDIR back at once, so that zsh itself reads all other start-up files of the
# user from where they are, and loads the integration before the first prompt.

() {
  emulate -L zsh
  typeset -g __velotide_script=${1:A:h:h}/velotide.zsh
} "${(%):-%x}"

if (( ${+VELOTIDE_USER_ZDOTDIR} )); then
  export ZDOTDIR=$VELOTIDE_USER_ZDOTDIR
  unset VELOTIDE_USER_ZDOTDIR
else
  unset ZDOTDIR
fi

if [[ -o interactive ]]; then
  __velotide_load() {
    emulate -L zsh
    trap - DEBUG ZERR
    precmd_functions=("${(@)precmd_functions:#__velotide_load}")
    unfunction __velotide_load
    builtin source "$__velotide_script"
    unset __velotide_script
    # The list of hooks of this first prompt is already being worked through.
    (( ! ${+functions[__velotide_precmd]} )) || __velotide_precmd
  }
  typeset -ga precmd_functions
  precmd_functions+=(__velotide_load)
else
  unset __velotide_script
fi

if [[ -r ${ZDOTDIR:-$HOME}/.zshenv ]]; then
  # As when zsh reads the file: $0 stays the shell's name.
  unsetopt function_argzero
  builtin source "${ZDOTDIR:-$HOME}/.zshenv"
  setopt function_argzero
fi
