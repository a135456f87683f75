# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Bash completion of zorbe(1).

# The names of all tables, a line each. Names with line breaks are left out. Undoes the escapes of
# the format of metrics, then those of the names; a tab stands for a backslash in between.
_zorbe_tables() {
  local name
  zorbe metrics "$@" 2>/dev/null |
    sed -n 's/^zorbe_writer_up{table="\(.*\)"} [01]$/\1/; T
      s/\\\\/\t/g; /\\n/d; s/\\"/"/g; s/\t/\\/g; p' |
    while IFS= read -r name; do printf '%b\n' "$name"; done
}

_zorbe() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command=${COMP_WORDS[1]} root=() options i name
  COMPREPLY=()
  if [ "$COMP_CWORD" = 1 ]; then
    mapfile -t COMPREPLY < <(compgen -W \
      'list show readers owner watch probe remove doctor metrics --help --version' -- "$current")
    return
  fi
  case $previous in
    --root)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      return
      ;;
    --timeout) return ;;
    --sort)
      mapfile -t COMPREPLY < <(compgen -W \
        'name writer pid connections bytes records behind lag' -- "$current")
      return
      ;;
    --state)
      mapfile -t COMPREPLY < <(compgen -W 'alive stopped hidden none corrupt behind' -- "$current")
      return
      ;;
    --debug)
      mapfile -t COMPREPLY < <(compgen -W '0 1 2 3 5 9' -- "$current")
      return
      ;;
  esac
  options='--root --debug --help'
  [ "$command" = metrics ] || options+=' --json'
  [ "$command" = list ] && options+=' --wide --sort --reverse --state'
  [ "$command" = watch ] && options+=' --files-only'
  [ "$command" = probe ] && options+=' --timeout'
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
    return
  fi
  case $command in show | readers | owner | watch | probe | remove) ;; *) return ;; esac
  for ((i = 2; i < COMP_CWORD; ++i)); do
    [ "${COMP_WORDS[i]}" = --root ] && root=(--root "${COMP_WORDS[i + 1]}")
  done
  while IFS= read -r name; do
    [[ $name == "$current"* ]] && COMPREPLY+=("$(printf %q "$name")")
  done < <(_zorbe_tables "${root[@]}")
}

complete -F _zorbe zorbe
