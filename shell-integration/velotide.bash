# Tells a hosting terminal session which command lines run in this bash, where
# and with what result, by marks that terminals do not display. Made to be
# sourced, after the user's own start-up files, by bash 3.2 and later.
#
# What is used depends on the version, because each way has a gap:
#   PS0 (4.4)     expanded once for every line about to run, whatever it is made
#                 of, but in a place that cannot ask which line that is: the
#                 text comes from the history, which may have left it out.
#   DEBUG trap    knows the first simple command of a line the history left out.
#                 Set between prompt and first command only, then what the user
#                 had is put back, so that loops run at full speed. Before 4.4
#                 it also stands in for PS0.
#   PROMPT_COMMAND ends a command. From 5.1 on it is an array whose elements all
#                 see the status of the command.

if [[ $- != *i* || -z ${VELOTIDE_AGENT_CONTEXT-} || ! -t 1 ]] ||
  declare -F __velotide_prompt_begins >/dev/null; then
  return 0
fi

# The user's aliases are no part of what follows, and its functions do not belong
# into the environment of other programs.
__velotide_aliases=
if shopt -q expand_aliases; then
  __velotide_aliases=1
  shopt -u expand_aliases
fi
__velotide_exports=
if [[ $- == *a* ]]; then
  __velotide_exports=1
  set +a
fi

# Tests of the paths of older versions pretend to be one.
__velotide_version=${VELOTIDE_ASSUME_BASH_VERSION:-$((BASH_VERSINFO[0] * 100 + BASH_VERSINFO[1]))}
__velotide_started=()  # what PS0 printed since the prompt, by line
__velotide_turn=0      # lines that PS0 saw since the prompt
__velotide_reported=   # the DEBUG trap printed the start of the line
__velotide_begun=      # the first prompt hook ran, the last not yet
__velotide_ready=      # a line is being waited for
__velotide_watches=1   # the DEBUG trap is wanted
__velotide_repeats=    # a line missing in the history can be the one before it again
__velotide_hides=1     # it can be any other
__velotide_history=    # the newest entry when the prompt was shown
__velotide_user_trap=- # the user's own DEBUG trap
__velotide_then=:      # what the DEBUG trap still has to do
__velotide_none= __velotide_uses_ps0= __velotide_directory= __velotide_here=
__velotide_last_argument= __velotide_reply=

# Names of hooks. The last function's name is also a number, see PS0 below. The
# first passes on the status of the command: in a list, where errexit and ERR traps
# do not take it for a failure.
__velotide_prompt_ends=0
__velotide_begin_hook='__velotide_prompt_begins && :'
__velotide_end_hook=__velotide_prompt_ends
# Functions do not see the DEBUG trap, so this one is text.
__velotide_trap_hook='[[ -z $__velotide_watches ]] || { __velotide_keep_trap "$(builtin trap -p DEBUG)"; builtin trap -- "$__velotide_trap" DEBUG; }'
__velotide_last_hooks=$__velotide_end_hook$'\n'$__velotide_trap_hook
__velotide_trap='__velotide_debug "$?" "$_"; builtin eval "$__velotide_then"; __velotide_return "$?" "$__velotide_last_argument"'
__velotide_loading='. "$VELOTIDE_BASH_INTEGRATION"; eval "${__velotide_last_hooks-}"'
# The text of the mark is kept for the hooks, then the line is counted. A lost
# last hook (someone unset the array) is put back: its name counts as 0.
__velotide_ps0='${__velotide_started[__velotide_turn]:=$(__velotide_line)}${__velotide_none:$((__velotide_turn++)):0}'
if ((__velotide_version >= 501)); then
  __velotide_ps0+='${__velotide_none:$((${PROMPT_COMMAND[99]:=__velotide_prompt_ends})):0}'
fi

# What follows answers in __velotide_reply where it can, because every command
# substitution is another process.

# The bytes of a text as hexadecimal digits. Changes the locale, so it is called
# in command substitutions only.
__velotide_hex() {
  LC_ALL=C
  local text=$1 chunk digits i bytes
  __velotide_reply=
  while [[ -n $text ]]; do
    chunk=${text:0:256}
    text=${text:256}
    bytes=()
    for ((i = 0; i < ${#chunk}; i++)); do
      bytes[i]="'${chunk:i:1}"
    done
    builtin printf -v digits '%02x' "${bytes[@]}"
    # Old versions take a byte above 127 for a negative number.
    __velotide_reply+=${digits//ffffffffffffff/}
  done
}

# The same for a command's text, cut so that its mark stays below 32,768 bytes,
# and made UTF-8 where it was not, because a mark that is not would be dropped.
__velotide_text_hex() {
  LC_ALL=C
  local text=$1 limit=16000 tail='[89ab].' valid
  if ((${#text} > limit)); then
    text=${text:0:limit}
    while [[ $text == *[$'\x80'-$'\xbf'] ]]; do text=${text%?}; done
    text=${text%[$'\xc0'-$'\xff']}
  fi
  __velotide_hex "$text"
  if [[ $text == *[$'\x80'-$'\xff']* ]]; then
    valid="^([0-7].|(c[2-9a-f]|d.)$tail|(e0[ab].|ed[89].|e[1-9abcef]$tail)$tail"
    valid+="|(f0[9ab].|f[1-3]$tail|f48.)$tail$tail)*\$"
    [[ $__velotide_reply =~ $valid ]] || __velotide_hex "${text//[$'\x80'-$'\xff']/?}"
  fi
}

__velotide_print_hex() {
  __velotide_hex "$1"
  builtin printf %s "$__velotide_reply"
}

# Sets the marks for shell and place, when the place is another one than before.
__velotide_look_around() {
  if [[ ${PWD-} != "$__velotide_directory" || -z $__velotide_here ]]; then
    __velotide_directory=${PWD-}
    builtin printf -v __velotide_here '\033]777;Velotide;%s\033\\' shell=bash \
      "context=$(__velotide_print_hex "$__velotide_directory"),$__velotide_fixed_context"
  fi
}

__velotide_start_mark() {
  __velotide_look_around
  __velotide_text_hex "$1"
  builtin printf '%s\033]777;Velotide;start=%s\033\\' "$__velotide_here" "$__velotide_reply"
}

# To the terminal, also where the line that begins has redirected its output.
__velotide_print() {
  if [[ -t 1 ]]; then
    builtin printf %s "$1"
  else
    { builtin printf %s "$1" >/dev/tty; } 2>/dev/null
  fi || :
}

# One entry as the history lists it is number, sign and text.
__velotide_entry_text() {
  local entry=${1#"${1%%[0-9]*}"}
  entry=${entry#"${entry%%[!0-9]*}"}
  __velotide_reply=${entry:2}
}

__velotide_entry_number() {
  local entry=${1#"${1%%[0-9]*}"}
  __velotide_reply=$((10#0${entry%%[!0-9]*}))
}

# The newest entries; nothing where a time before their text cannot be kept out.
__velotide_entries() {
  local HISTTIMEFORMAT='' 2>/dev/null || return 0
  builtin history "$1"
}

# The line about to run, or nothing where the history does not tell.
__velotide_recorded() {
  local entry count line lines=
  entry=$(__velotide_entries 1)
  __velotide_entry_text "$entry"
  if [[ $entry == "$__velotide_history" ]]; then
    [[ -n $__velotide_repeats && -z $__velotide_hides ]] || __velotide_reply=
  elif ! shopt -q cmdhist; then
    # Each line of a command is an entry of its own.
    __velotide_entry_number "$entry"
    count=$__velotide_reply
    __velotide_entry_number "$__velotide_history"
    count=$((count > __velotide_reply ? count - __velotide_reply : 1))
    while IFS= read -r line; do
      __velotide_entry_text "$line"
      lines+=$__velotide_reply$'\n'
    done <<<"$(__velotide_entries "$count")"
    __velotide_reply=${lines%$'\n'}
  fi
}

# PS0: the start marks of a line that the history recorded. Between lines pasted
# at once no hooks run, so the end of the line before is told here, too.
__velotide_line() {
  { local status=$?; set +xe; } 2>/dev/null
  [[ -t 2 ]] || return 0
  ((__velotide_turn == 0)) || builtin printf '\033]777;Velotide;end=%s\033\\' "$status"
  __velotide_recorded
  [[ -z $__velotide_reply ]] || __velotide_start_mark "$__velotide_reply"
}

# The line about to run, of which only the first simple command is known: the
# last entry once more if that begins with it and repetitions are left out of
# the history, otherwise this command alone.
__velotide_unrecorded() {
  local first=$1 begin word
  __velotide_reply=$first
  if [[ -n $__velotide_repeats ]]; then
    __velotide_entry_text "$__velotide_history"
    begin=$__velotide_reply
    for word in if while until time '!' '{' '('; do
      [[ $begin != "$word"[[:space:]]* ]] || begin=${begin#"$word"}
    done
    begin=${begin//[[:space:]]/}
    [[ -n $begin && $begin == "${first//[[:space:]]/}"* ]] || __velotide_reply=$first
  fi
}

# DEBUG trap: $1 and $2 are the $? and $_ that the user's own trap has to see.
# What to do at the level of the trap is left in __velotide_then.
__velotide_debug() {
  { local traced=; [[ $- != *x* ]] || traced=1; set +x; } 2>/dev/null
  local give=:
  __velotide_last_argument=$2
  if [[ $__velotide_user_trap != - ]]; then
    give='"$__velotide_last_argument"'
    give="__velotide_return $1 $give && : $give; $__velotide_user_trap"
  fi
  __velotide_then=$give
  if __velotide_is_typed "$BASH_COMMAND"; then
    if [[ -z ${__velotide_started[*]-} ]]; then
      __velotide_recorded
      [[ -n $__velotide_reply ]] || __velotide_unrecorded "$BASH_COMMAND"
      __velotide_print "$(__velotide_start_mark "$__velotide_reply")"
      __velotide_reported=1
    fi
    __velotide_ready=
    __velotide_then='builtin trap -- "$__velotide_user_trap" DEBUG; '$give
  fi
  [[ -z $traced ]] || set -x
}

__velotide_return() { return "$1"; }

# Whether the DEBUG trap sees a command of the line, and not one of a hook, a
# completion, a key binding or, where functrace is set, a function.
__velotide_is_typed() {
  [[ -n $__velotide_ready && $1 != *__velotide_* ]] || return 1
  [[ $BASH_SUBSHELL == 0 && ${#FUNCNAME[@]} == 2 ]] || return 1
  if [[ -n $__velotide_uses_ps0 ]]; then
    ((__velotide_turn > 0)) || return 1
  else
    [[ -z ${COMP_LINE+set}${READLINE_LINE+set} ]] || return 1
    # Without a reason to be left out, a line that is not in the history is none.
    [[ -n $__velotide_hides$__velotide_repeats ||
      $(__velotide_entries 1) != "$__velotide_history" ]] || return 1
  fi
  __velotide_is_installed || [[ ${PROMPT_COMMAND-} != *"$1"* ]]
}

__velotide_keep_trap() {
  if [[ -z $1 ]]; then
    __velotide_user_trap=-
  else
    builtin eval "set -- $1"
    [[ $3 == "$__velotide_trap" ]] || __velotide_user_trap=$3
  fi
}

# Whether a line ran since the last prompt that no start was printed for.
__velotide_missed() {
  local entry
  [[ -z $__velotide_reported && -z ${__velotide_started[*]-} ]] || return 1
  if [[ -n $__velotide_uses_ps0 ]]; then
    ((__velotide_turn > 0))
    return
  fi
  [[ -n $__velotide_ready ]] || return 1
  entry=$(__velotide_entries 1)
  [[ $entry != "$__velotide_history" ]] || return 1
  __velotide_entry_text "$entry"
  entry=$__velotide_reply
  # Neither a comment, nor a syntax error, nor lines given up with Ctrl-C.
  [[ $entry != '#'* && $1 != "$((BASH_VERSINFO[0] < 5 ? 258 : 2))" ]] || return 1
  [[ $1 != 130 || $entry == '('*')' ]]
}

__velotide_finish() {
  if __velotide_missed "$1"; then
    __velotide_recorded
    if [[ -z $__velotide_reply && -n $__velotide_repeats ]]; then
      __velotide_entry_text "$__velotide_history"
      [[ $__velotide_reply == '('* ]] || __velotide_reply=
    fi
    __velotide_print "$(__velotide_start_mark "${__velotide_reply:-(not recorded)}")"
    __velotide_reported=1
  fi
  if [[ -n $__velotide_reported || -n ${__velotide_started[*]-} ]]; then
    __velotide_print $'\e]777;Velotide;end='"$1"$'\e\\'
  fi
  __velotide_started=()
  __velotide_turn=0
  __velotide_reported=
  __velotide_ready=
}

# First of the prompt hooks: what those of the user print is no longer output of
# the command.
__velotide_prompt_begins() {
  { local status=$? traced=; [[ $- != *x* ]] || traced=1; set +x; } 2>/dev/null
  __velotide_finish "$status"
  __velotide_begun=1
  { [[ -z $traced ]] || set -x; return "$status"; } 2>/dev/null
}

# Last of the prompt hooks: they may have changed directory, history and hooks.
__velotide_prompt_ends() {
  { local status=$? traced=; [[ $- != *x* ]] || traced=1; set +x; } 2>/dev/null
  [[ -n $__velotide_begun ]] || __velotide_finish "$status"
  __velotide_begun=
  __velotide_look_around
  __velotide_print "$__velotide_here"
  __velotide_install
  __velotide_read_history
  __velotide_ready=1
  [[ -z $traced ]] || set -x
}

__velotide_read_history() {
  __velotide_history=$(__velotide_entries 1)
  __velotide_repeats=
  __velotide_hides=
  case :${HISTCONTROL-}: in *:ignoredups:* | *:ignoreboth:* | *:erasedups:*) __velotide_repeats=1 ;; esac
  case :${HISTCONTROL-}: in *:ignorespace:* | *:ignoreboth:*) __velotide_hides=1 ;; esac
  if [[ :$SHELLOPTS: != *:history:* || -n ${HISTIGNORE-} || ${HISTSIZE-} == 0 ]] ||
    { [[ -z $__velotide_history ]] && __velotide_is_readonly HISTTIMEFORMAT; }; then
    __velotide_hides=1
  fi
  __velotide_watches=$__velotide_hides
  [[ -n $__velotide_uses_ps0 ]] || __velotide_watches=1
}

__velotide_is_installed() {
  if ((__velotide_version >= 501)); then
    [[ ${PROMPT_COMMAND[0]-} == "$__velotide_begin_hook" &&
      ${PROMPT_COMMAND[99]-} == "$__velotide_end_hook" &&
      ${PROMPT_COMMAND[100]-} == "$__velotide_trap_hook" ]]
  else
    [[ ${PROMPT_COMMAND-} == "$__velotide_begin_hook"$'\n'*"$__velotide_last_hooks" ]]
  fi
}

__velotide_is_readonly() {
  local attributes
  attributes=$(declare -p "$1" 2>/dev/null) || return 1
  attributes=${attributes#declare -}
  [[ ${attributes%% *} == *r* ]]
}

# Puts the hooks where they belong, also after others rewrote them.
__velotide_install() {
  __velotide_is_installed || __velotide_install_hooks
  __velotide_uses_ps0=
  if ((__velotide_version >= 404)); then
    if shopt -q promptvars; then
      __velotide_uses_ps0=1
      [[ ${PS0-} == *"$__velotide_ps0"* ]] || PS0=${PS0-}$__velotide_ps0
    else
      PS0=${PS0-}
      PS0=${PS0//"$__velotide_ps0"/}
    fi
  fi
  # A nested shell would find hooks without their functions.
  export -n PROMPT_COMMAND PS0
}

__velotide_install_hooks() {
  local text hooks=()
  if ((__velotide_version >= 501)); then
    for text in "${PROMPT_COMMAND[@]}"; do
      __velotide_without_hooks "$text"
      [[ -z $__velotide_reply ]] || hooks+=("$__velotide_reply")
    done
    PROMPT_COMMAND=("$__velotide_begin_hook" "${hooks[@]}")
    PROMPT_COMMAND[99]=$__velotide_end_hook
    PROMPT_COMMAND[100]=$__velotide_trap_hook
  else
    __velotide_without_hooks "${PROMPT_COMMAND-}"
    text=$__velotide_reply
    PROMPT_COMMAND=$__velotide_begin_hook$'\n'${text:+$text$'\n'}$__velotide_last_hooks
  fi
}

# A hook of the user, freed of ours that a "$PROMPT_COMMAND" brought into it.
__velotide_without_hooks() {
  local text=$1 hook
  for hook in "$__velotide_loading" "$__velotide_last_hooks" "$__velotide_trap_hook" \
    "$__velotide_begin_hook" "$__velotide_end_hook"; do
    [[ $text != "$hook" ]] || text=
    text=${text#"$hook"[$'\n;']}
    text=${text%[$'\n;']"$hook"}
    text=${text//"$hook"/:}
  done
  __velotide_reply=$text
}

# What was made read-only stays as it is, and the session untracked. The line that
# loaded this may have to stay, too, and finds nothing more to do.
if __velotide_is_readonly PROMPT_COMMAND || __velotide_is_readonly PS0 || __velotide_is_readonly LC_ALL; then
  unset __velotide_last_hooks
  export -n VELOTIDE_BASH_INTEGRATION PROMPT_COMMAND
else
  __velotide_fixed_context=${USER:-${LOGNAME:-$(id -un 2>/dev/null)}}
  __velotide_fixed_context=$(__velotide_print_hex "$__velotide_fixed_context"),$UID,$(__velotide_print_hex "${HOSTNAME-}"),$(__velotide_print_hex bash)
  __velotide_install
  unset VELOTIDE_BASH_INTEGRATION
fi

[[ -z $__velotide_exports ]] || set -a
[[ -z $__velotide_aliases ]] || shopt -s expand_aliases
unset __velotide_exports __velotide_aliases
