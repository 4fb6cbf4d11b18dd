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
    '--check=[budgets to hold the variables against]:file:_files' \
    '(-j --jobs)'{-j,--jobs=}'[processes that read]:number:' \
    '(- *)'{-h,--help}'[show help]' \
    '*:input:_files'
}

_tolquin_report() {
  _arguments -s -S : \
    '(-o --output)'{-o,--output=}'[the page]:file:_files' \
    '--title=[title of the page]:title:' \
    '--source-url=[address with {file} and {line} that places lead to]:address:' \
    '--where=[only variables that fulfil conditions]:conditions:' \
    '--mutable[only variables that are writable or thread-local]' \
    '--duplicates[only variables of one definition at several addresses]' \
    '--artificial[also variables that the compiler made up]' \
    '(-j --jobs)'{-j,--jobs=}'[processes that read]:number:' \
    '(- *)'{-h,--help}'[show help]' \
    '*:input:_files'
}

_tolquin_diff() {
  _arguments -s -S : \
    '--format=[how to write it]:format:(table json markdown github)' \
    '-n[show at most so many changes]:number:' \
    '--moves[also variables that only moved to another section]' \
    '--where=[only variables that fulfil conditions]:conditions:' \
    '--mutable[only variables that are or were writable or thread-local]' \
    '--artificial[also variables that the compiler made up]' \
    '--fail-on-growth=[fail if they take so many more bytes]:bytes or percentage:' \
    '--all[count the bytes of all variables for that]' \
    '--fail-on-new-writable[fail if a variable is newly writable]' \
    '(-j --jobs)'{-j,--jobs=}'[processes that read]:number:' \
    '(- *)'{-h,--help}'[show help]' \
    ':old build:_files' \
    ':new build:_files'
}

_tolquin_export() {
  _arguments -s -S : \
    '--sqlite=[database to write]:database:_files' \
    '--where=[only variables that fulfil conditions]:conditions:' \
    '--mutable[only variables that are writable or thread-local]' \
    '--duplicates[only variables of one definition at several addresses]' \
    '--artificial[also variables that the compiler made up]' \
    '(-j --jobs)'{-j,--jobs=}'[processes that read]:number:' \
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
  commands=('list:list the variables of programs' 'report:make a page to look at' 'diff:show what changed between two builds'
    'export:put the variables into a database' 'tables:make the tables that tolquin.exe reads')
  if [[ $words[2] == (list|report|diff|export|tables) ]] && (( CURRENT > 2 )); then
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
