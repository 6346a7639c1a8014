# Tells a hosting terminal session which command lines run in this zsh, where
# and with what result, by marks that terminals do not display. Made to be
# sourced, after the user's own start-up files.

if [[ ! -o interactive || -z ${VELOTIDE_AGENT_CONTEXT-} || ! -t 1 ]] ||
  (( ${+functions[__velotide_precmd]} )); then
  return 0
fi

# The user's aliases, global ones among them, are no part of what follows, and
# nothing of it belongs into the environment of other programs.
'builtin' 'typeset' '-g' '__velotide_options='
[[ ! -o 'aliases' ]] || __velotide_options+=' aliases'
[[ ! -o 'allexport' ]] || __velotide_options+=' allexport'
'builtin' 'setopt' 'no_aliases' 'no_allexport'

typeset -g __velotide_eol_mark= __velotide_running= __velotide_directory= __velotide_here= __velotide_fixed_context=

# Sets REPLY to the bytes of a text as hexadecimal digits.
__velotide_hex() {
  emulate -L zsh -o no_multibyte
  local -a bytes
  bytes=("${(@s::)1}")
  REPLY=
  (( $#1 == 0 )) || builtin printf -v REPLY '%02x' "'"${^bytes}
}

# The same for a command's text, cut so that its mark stays below 32,768 bytes,
# and made UTF-8 where it was not, because a mark that is not would be dropped.
__velotide_text_hex() {
  emulate -L zsh -o no_multibyte
  local MATCH MBEGIN MEND match mbegin mend
  local text=$1 tail='[89ab].' valid
  if (( $#text > 16000 )); then
    text=${text[1,16000]}
    while [[ $text == *[$'\x80'-$'\xbf'] ]]; do text=${text[1,-2]}; done
    text=${text%[$'\xc0'-$'\xff']}
  fi
  __velotide_hex "$text"
  if [[ $text == *[$'\x80'-$'\xff']* ]]; then
    valid="^([0-7].|(c[2-9a-f]|d.)$tail|(e0[ab].|ed[89].|e[1-9abcef]$tail)$tail"
    valid+="|(f0[9ab].|f[1-3]$tail|f48.)$tail$tail)*\$"
    [[ $REPLY =~ $valid ]] || __velotide_hex "${text//[$'\x80'-$'\xff']/?}"
  fi
}

# To the terminal, also while the output of the shell goes elsewhere.
__velotide_print() {
  if [[ -t 1 ]]; then
    builtin print -rn -- "$1"
  else
    { builtin print -rn -- "$1" >/dev/tty } 2>/dev/null
  fi
}

# Sets the marks for shell and place, when the place is another one than before.
__velotide_look_around() {
  local REPLY
  if [[ $PWD != "$__velotide_directory" || -z $__velotide_here ]]; then
    __velotide_directory=$PWD
    __velotide_hex "$PWD"
    __velotide_here=$'\e]777;Velotide;shell=zsh\e\\\e]777;Velotide;context='"$REPLY,$__velotide_fixed_context"$'\e\\'
  fi
}

# Before any hook zsh fills the line that a command left unfinished, which is no
# output of the command. The text it begins with can carry the end mark.
__velotide_lend_eol_mark() {
  [[ ${(t)PROMPT_EOL_MARK} != *(export|readonly)* ]] || return
  __velotide_eol_mark=${+PROMPT_EOL_MARK}${PROMPT_EOL_MARK-}
  typeset -g PROMPT_EOL_MARK=$__velotide_eol_text${PROMPT_EOL_MARK-'%B%S%#%s%b'}
}

# Fails when the command has changed the text, so that the mark is missing.
__velotide_return_eol_mark() {
  local kept=$__velotide_eol_mark
  __velotide_eol_mark=
  [[ ${PROMPT_EOL_MARK-} == "$__velotide_eol_text"* ]] || return 1
  if [[ $kept == 1* ]]; then
    PROMPT_EOL_MARK=${kept#1}
  else
    unset PROMPT_EOL_MARK
  fi
}

__velotide_preexec() {
  { emulate -L zsh -o no_xtrace; trap - DEBUG ZERR } 2>/dev/null
  local REPLY
  # A line that is kept out of the history comes as the shell understood it.
  __velotide_text_hex "${1:-$3}"
  __velotide_look_around
  __velotide_print "$__velotide_here"$'\e]777;Velotide;start='$REPLY$'\e\\'
  __velotide_running=1
  __velotide_lend_eol_mark
  (( ${precmd_functions[(I)__velotide_precmd]} )) || precmd_functions+=(__velotide_precmd)
}

__velotide_precmd() {
  local -i code=$?
  local sp=
  [[ ! -o prompt_sp || ! -o prompt_cr ]] || sp=1
  { emulate -L zsh -o no_xtrace; trap - DEBUG ZERR } 2>/dev/null
  local told=
  if [[ -n $__velotide_eol_mark ]]; then
    [[ -z $sp ]] || told=$__velotide_running
    __velotide_return_eol_mark || told=
  fi
  [[ -z $__velotide_running || -n $told ]] || __velotide_print $'\e]777;Velotide;end='$code$'\e\\'
  __velotide_running=
  __velotide_look_around
  __velotide_print "$__velotide_here"
  (( ${preexec_functions[(I)__velotide_preexec]} )) || preexec_functions+=(__velotide_preexec)
}

() {
  emulate -L zsh
  local REPLY word
  for word in "${(%):-%n}" "$UID" "$HOST" zsh; do
    REPLY=$word
    [[ $word == $UID ]] || __velotide_hex "$word"
    __velotide_fixed_context+=,$REPLY
  done
  __velotide_fixed_context=${__velotide_fixed_context#,}
}

typeset -g __velotide_eol_text=$'%{\e]777;Velotide;end=%?\e\\%}'

# The end comes before what other hooks print, the start after it. Every hook is
# given the status of the command.
typeset -ga precmd_functions preexec_functions
precmd_functions=(__velotide_precmd "${precmd_functions[@]}")
preexec_functions+=(__velotide_preexec)

'builtin' 'setopt' ${=__velotide_options}
'builtin' 'unset' '__velotide_options'
