# Start-up file of a zsh that is started with ZDOTDIR naming this folder. Gives
# ZDOTDIR back at once, so that zsh itself reads all other start-up files of the
# user from where they are, and loads the integration before the first prompt, or
# with the first command where a file assigned the list of prompt hooks.

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
    precmd_functions=(${precmd_functions:#__velotide_load})
    preexec_functions=(${preexec_functions:#__velotide_load})
    unfunction __velotide_load
    # A file of the user may have sourced it, and then its hooks run by themselves.
    # Otherwise the list of hooks is already being worked through without them.
    if (( ! ${+functions[__velotide_precmd]} )); then
      builtin source "$__velotide_script"
      if (( $# && ${+functions[__velotide_preexec]} )); then
        __velotide_preexec "$@"
      elif (( ${+functions[__velotide_precmd]} )); then
        __velotide_precmd
      fi
    fi
    unset __velotide_script
  }
  typeset -ga precmd_functions preexec_functions
  precmd_functions+=(__velotide_load)
  preexec_functions+=(__velotide_load)
else
  unset __velotide_script
fi

if [[ -r ${ZDOTDIR:-$HOME}/.zshenv ]]; then
  # As when zsh reads the file: $0 stays the shell's name.
  unsetopt function_argzero
  builtin source "${ZDOTDIR:-$HOME}/.zshenv"
  setopt function_argzero
fi
