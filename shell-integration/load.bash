# Start-up file of a bash that is started with shell integration: does what bash
# would have done by itself, then loads the integration. Named by --rcfile for a
# shell that is no login shell, else by ENV, which a login shell in POSIX mode
# reads in place of all other files. README.md says how to start it.

if shopt -q login_shell; then
  if [[ ${VELOTIDE_USER_ENV+set} ]]; then
    ENV=$VELOTIDE_USER_ENV
  else
    unset ENV
  fi
  unset VELOTIDE_USER_ENV
  set +o posix
  # What POSIX mode had changed while the shell started.
  shopt -u inherit_errexit 2>/dev/null
  if [[ ${HISTFILE-} == ~/.sh_history ]]; then
    HISTFILE=~/.bash_history
  fi

  if [[ -r /etc/profile ]]; then
    . /etc/profile
  fi
  if [[ -r ~/.bash_profile ]]; then
    . ~/.bash_profile
  elif [[ -r ~/.bash_login ]]; then
    . ~/.bash_login
  elif [[ -r ~/.profile ]]; then
    . ~/.profile
  fi
elif [[ -r ~/.bashrc ]]; then
  . ~/.bashrc
fi

. "${BASH_SOURCE[0]%/*}/velotide.bash"
