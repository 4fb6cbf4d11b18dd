# Completion of tolquin for bash; installed where bash-completion loads it.

# Completes the last item of a comma-separated list. Usage: _tolquin_list <current word> <words>
_tolquin_list() {
  local before= last=$1
  if [[ $1 == *,* ]]; then before=${1%,*}, last=${1##*,}; fi
  if [[ $last == -* ]]; then before+=- last=${last#-}; fi
  mapfile -t COMPREPLY < <(compgen -P "$before" -W "$2" -- "$last")
  compopt -o nospace
}

_tolquin() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]}
  # bash splits --option=value into three words.
  if [ "$word" = = ]; then
    word=
  elif [ "$previous" = = ]; then
    previous=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  COMPREPLY=()
  case $previous in
    --format)
      local formats="table csv tsv json jsonl"
      if [ "$command" = diff ]; then formats="table json markdown github"; fi
      mapfile -t COMPREPLY < <(compgen -W "$formats" -- "$word"); return ;;
    --by) mapfile -t COMPREPLY < <(compgen -W "file namespace type section executable" -- "$word"); return ;;
    --sort | --columns) _tolquin_list "$word" "$("$1" list --list-columns 2>/dev/null | cut -f1)"; return ;;
    --where | -n | -j | --jobs | --title | --source-url | --fail-on-growth) return ;;
    --check | --sqlite) mapfile -t COMPREPLY < <(compgen -f -- "$word"); return ;;
    -o | --output)
      local kind=-f
      if [ "$command" = tables ]; then kind=-d; fi
      mapfile -t COMPREPLY < <(compgen "$kind" -- "$word"); return ;;
  esac
  if [[ $word == -* ]]; then
    local options selection="--where --mutable --artificial --jobs --help"
    case $command in
      report) options="--output --title --source-url --duplicates $selection" ;;
      diff) options="--format -n --moves --fail-on-growth --all --fail-on-new-writable $selection" ;;
      export) options="--sqlite --duplicates $selection" ;;
      tables) options="--output --qualified --quiet --help" ;;
      *) options="--format --columns --sort -n --list-columns --by --check --duplicates $selection" ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
    return
  fi
  mapfile -t COMPREPLY < <(compgen -f -- "$word")
  if [ "$COMP_CWORD" -eq 1 ]; then
    mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -W "list report diff export tables" -- "$word")
  fi
}
complete -o filenames -F _tolquin tolquin
