# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Bash completion of zorbe(1) and zorbe-relay(1).

# The names of all tables, a line each. Names with line breaks are left out. Undoes the escapes of
# the format of metrics, then those of the names; a tab stands for a backslash in between. Empty
# without zorbe(1).
_zorbe_tables() {
  local name
  zorbe metrics "$@" 2>/dev/null |
    sed -n 's/^zorbe_writer_up{table="\(.*\)"} [01]$/\1/; T
      s/\\\\/\t/g; /\\n/d; s/\\"/"/g; s/\t/\\/g; p' |
    while IFS= read -r name; do printf '%b\n' "$name"; done
}

# Offers a table when the current word, in one of its spellings, begins its name. Within quotes the
# shell closes them by itself.
_zorbe_offer() {
  local current=$1 name=$2 quoted
  case $current in
    \'*)
      [[ $name == "${current:1}"* ]] && COMPREPLY+=("${name//\'/\'\\\'\'}")
      ;;
    \"*)
      quoted=${name//\\/\\\\}
      quoted=${quoted//\"/\\\"}
      quoted=${quoted//\$/\\\$}
      quoted=${quoted//\`/\\\`}
      [[ $quoted == "${current:1}"* ]] && COMPREPLY+=("$quoted")
      ;;
    *)
      printf -v quoted %q "$name"
      [[ $quoted == "$current"* || $name == "${current//\\/}"* ]] && COMPREPLY+=("$quoted")
      ;;
  esac
}

_zorbe() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local program=${COMP_WORDS[0]} command=${COMP_WORDS[1]} root=() options help i name
  COMPREPLY=()
  if [ "$COMP_CWORD" = 1 ]; then
    options=$("$program" --help 2>/dev/null | sed -n '/^subcommands:/I,/^$/s/^  \([a-z]\+\) .*/\1/p')
    mapfile -t COMPREPLY < <(compgen -W "$options --help --version" -- "$current")
    return
  fi
  # A field of zorbe's, and a file of zorbe-relay's.
  [ "${program##*/} $previous" != 'zorbe-relay --key' ] || previous=--cert
  case $previous in
    --root)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      return
      ;;
    --password-file | --ca-file | --cert)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    --to | --from)
      compopt -o nospace
      mapfile -t COMPREPLY < <(compgen -W \
        'redis:// rediss:// redis+sentinel:// rediss+sentinel:// unix:///' -- "$current")
      return
      ;;
    --timeout | --interval | --key | --field | --as | --prefix | --user | --history) return ;;
    --format)
      mapfile -t COMPREPLY < <(compgen -W 'csv json' -- "$current")
      return
      ;;
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
  # What the command says about itself is never out of date.
  help=$("$program" "$command" --help 2>/dev/null)
  if [[ $current == -* ]]; then
    options=$(grep -oE -- '--[a-z][a-z-]+' <<<"$help" | sort -u)
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
    return
  fi
  [[ $help == *TABLE* ]] || return
  for ((i = 2; i < COMP_CWORD; ++i)); do
    [ "${COMP_WORDS[i]}" = --root ] && root=(--root "${COMP_WORDS[i + 1]}")
  done
  while IFS= read -r name; do
    _zorbe_offer "$current" "$name"
  done < <(_zorbe_tables "${root[@]}")
}

complete -F _zorbe zorbe zorbe-relay
