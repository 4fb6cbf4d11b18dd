# bash completion for tolquin

# Completes the last word of a list separated by commas. Usage: _tolquin_list <current word> <words>
_tolquin_list() {
  local before= last=$1
  if [[ $1 == *,* ]]; then before=${1%,*}, last=${1##*,}; fi
  if [[ $last == -* ]]; then before+=- last=${last#-}; fi
  mapfile -t COMPREPLY < <(compgen -P "$before" -W "$2" -- "$last")
  compopt -o nospace
}

_tolquin() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]}
  # A "=" is a word of its own.
  if [ "$word" = = ]; then
    word=
  elif [ "$previous" = = ]; then
    previous=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  COMPREPLY=()
  case $previous in
    --format) mapfile -t COMPREPLY < <(compgen -W "table csv tsv json jsonl" -- "$word"); return ;;
    --by) mapfile -t COMPREPLY < <(compgen -W "file namespace type section executable" -- "$word"); return ;;
    --sort | --columns) _tolquin_list "$word" "$("$1" list --list-columns 2>/dev/null | cut -f1)"; return ;;
    --where | -n | -j | --jobs | --title | --source-url) return ;;
    -o | --output) [ "$command" = tables ] && mapfile -t COMPREPLY < <(compgen -d -- "$word") && return ;;
  esac
  if [[ $word == -* ]]; then
    local options="--format --columns --sort -n --list-columns --where --mutable --duplicates --artificial --by --jobs --help"
    case $command in
      report) options="--output --title --source-url --where --mutable --duplicates --artificial --jobs --help" ;;
      tables) options="--output --qualified --quiet --help" ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
    return
  fi
  mapfile -t COMPREPLY < <(compgen -f -- "$word")
  if [ "$COMP_CWORD" -eq 1 ]; then
    mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -W "list report tables" -- "$word")
  fi
}
complete -o filenames -F _tolquin tolquin
