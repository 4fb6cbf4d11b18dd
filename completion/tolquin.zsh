#compdef tolquin

_tolquin_columns() {
  local -a columns
  columns=(${(f)"$(_call_program columns ${(q)words[1]} list --list-columns 2>/dev/null)"})
  columns=(${columns/$'\t'/:})
  compset -P '*,'
  compset -P '-'
  _describe -t columns column columns -S ',' -q
}

_tolquin_list() {
  _arguments -s -S : \
    '--format=[how to write it]:format:(table csv tsv json jsonl)' \
    '--columns=[columns to show]:columns:_tolquin_columns' \
    '--sort=[columns to sort by, with - in descending order]:columns:_tolquin_columns' \
    '-n[show at most so many rows]:number:' \
    '--list-columns[show the names of all columns]' \
    '--where=[only variables that fulfil conditions]:conditions:' \
    '--mutable[only variables that are writable or thread-local]' \
    '--duplicates[only variables of one definition at several addresses]' \
    '--artificial[also variables that the compiler made up]' \
    '--by=[sums instead of variables]:grouping:(file namespace type section executable)' \
    '(-j --jobs)'{-j,--jobs=}'[inputs to read at a time]:number:' \
    '(- *)'{-h,--help}'[show help]' \
    '*:input:_files'
}

_tolquin_tables() {
  _arguments -s -S : \
    '(-o --output)'{-o,--output=}'[directory for the tables]:directory:_files -/' \
    '--qualified[leave declarations that need a scope to the debugger]' \
    '--quiet[print no summary]' \
    '(- *)'{-h,--help}'[show help]' \
    ':executable:_files'
}

_tolquin() {
  local -a commands
  commands=('list:list the variables of programs' 'tables:make the tables that tolquin.exe reads')
  if [[ $words[2] == (list|tables) ]] && (( CURRENT > 2 )); then
    local command=$words[2]
    words=($words[1] ${words[3,-1]})
    (( CURRENT-- ))
    _tolquin_$command
  elif (( CURRENT == 2 )) && [[ $words[2] != -* ]]; then
    _alternative 'commands:command:(($commands))' 'files:input:_files'
  else
    _tolquin_list
  fi
}

_tolquin "$@"
