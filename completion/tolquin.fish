# fish completion for tolquin

# The columns, each after what stands before the last comma of the current word.
function __tolquin_columns
    set -l before (string match -r '^(?:--[a-z]+=)?(.*,|)-?' -- (commandline -ct))[1]
    set -l before (string replace -r '^--[a-z]+=' '' -- $before)
    for column in (tolquin list --list-columns 2>/dev/null)
        echo $before$column
    end
end

set -l is_list 'not __fish_seen_subcommand_from report diff export tables'
set -l is_report '__fish_seen_subcommand_from report'
set -l is_diff '__fish_seen_subcommand_from diff'
set -l is_export '__fish_seen_subcommand_from export'
set -l is_tables '__fish_seen_subcommand_from tables'
set -l selects 'not __fish_seen_subcommand_from tables'
set -l not_diff 'not __fish_seen_subcommand_from diff tables'
complete -c tolquin -n __fish_is_first_arg -a list -d 'List the variables of programs'
complete -c tolquin -n __fish_is_first_arg -a report -d 'Make a page to look at'
complete -c tolquin -n __fish_is_first_arg -a diff -d 'Show what changed between two builds'
complete -c tolquin -n __fish_is_first_arg -a export -d 'Put the variables of programs into a database'
complete -c tolquin -n __fish_is_first_arg -a tables -d 'Make the tables that tolquin.exe reads'
complete -c tolquin -n $selects -l where -x -d 'Only variables that fulfil conditions'
complete -c tolquin -n $selects -l mutable -d 'Only variables that are writable or thread-local'
complete -c tolquin -n $not_diff -l duplicates -d 'Only variables of one definition at several addresses'
complete -c tolquin -n $selects -l artificial -d 'Also variables that the compiler made up'
complete -c tolquin -n $selects -s j -l jobs -x -d 'Processes that read'
complete -c tolquin -n $is_list -l format -x -a 'table csv tsv json jsonl' -d 'How to write it'
complete -c tolquin -n $is_list -l columns -x -a '(__tolquin_columns)' -d 'Columns to show'
complete -c tolquin -n $is_list -l sort -x -a '(__tolquin_columns)' -d 'Columns to sort by'
complete -c tolquin -n $is_list -s n -x -d 'Show at most so many rows'
complete -c tolquin -n $is_list -l list-columns -d 'Show the names of all columns'
complete -c tolquin -n $is_list -l by -x -a 'file namespace type section executable' -d 'Sums instead of variables'
complete -c tolquin -n $is_list -l check -r -d 'Budgets to hold the variables against'
complete -c tolquin -n $is_report -s o -l output -r -d 'The page'
complete -c tolquin -n $is_report -l title -x -d 'Title of the page'
complete -c tolquin -n $is_report -l source-url -x -d 'Address with {file} and {line} that places lead to'
complete -c tolquin -n $is_diff -l format -x -a 'table json markdown github' -d 'How to write it'
complete -c tolquin -n $is_diff -s n -x -d 'Show at most so many changes'
complete -c tolquin -n $is_diff -l moves -d 'Also variables that only moved to another section'
complete -c tolquin -n $is_diff -l fail-on-growth -x -d 'Fail if they take so many more bytes'
complete -c tolquin -n $is_diff -l all -d 'Count the bytes of all variables for that'
complete -c tolquin -n $is_diff -l fail-on-new-writable -d 'Fail if a variable is newly writable'
complete -c tolquin -n $is_export -l sqlite -r -d 'Database to write'
complete -c tolquin -n $is_tables -s o -l output -r -d 'Directory for the tables'
complete -c tolquin -n $is_tables -l qualified -d 'Leave scoped declarations to the debugger'
complete -c tolquin -n $is_tables -l quiet -d 'Print no summary'
complete -c tolquin -s h -l help -d 'Show help'
