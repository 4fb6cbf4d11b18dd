# fish completion for tolquin

# The columns, each after what stands before the last comma of the current word.
function __tolquin_columns
    set -l before (string match -r '^(?:--[a-z]+=)?(.*,|)-?' -- (commandline -ct))[1]
    set -l before (string replace -r '^--[a-z]+=' '' -- $before)
    for column in (tolquin list --list-columns 2>/dev/null)
        echo $before$column
    end
end

set -l not_tables 'not __fish_seen_subcommand_from tables'
complete -c tolquin -n __fish_is_first_arg -a list -d 'List the variables of programs'
complete -c tolquin -n __fish_is_first_arg -a tables -d 'Make the tables that tolquin.exe reads'
complete -c tolquin -n $not_tables -l format -x -a 'table csv tsv json jsonl' -d 'How to write it'
complete -c tolquin -n $not_tables -l columns -x -a '(__tolquin_columns)' -d 'Columns to show'
complete -c tolquin -n $not_tables -l sort -x -a '(__tolquin_columns)' -d 'Columns to sort by'
complete -c tolquin -n $not_tables -s n -x -d 'Show at most so many rows'
complete -c tolquin -n $not_tables -l list-columns -d 'Show the names of all columns'
complete -c tolquin -n $not_tables -l where -x -d 'Only variables that fulfil conditions'
complete -c tolquin -n $not_tables -l mutable -d 'Only variables that are writable or thread-local'
complete -c tolquin -n $not_tables -l duplicates -d 'Only variables of one definition at several addresses'
complete -c tolquin -n $not_tables -l artificial -d 'Also variables that the compiler made up'
complete -c tolquin -n $not_tables -l by -x -a 'file namespace type section executable' -d 'Sums instead of variables'
complete -c tolquin -n $not_tables -s j -l jobs -x -d 'Inputs to read at a time'
complete -c tolquin -n '__fish_seen_subcommand_from tables' -s o -l output -r -d 'Directory for the tables'
complete -c tolquin -n '__fish_seen_subcommand_from tables' -l qualified -d 'Leave scoped declarations to the debugger'
complete -c tolquin -n '__fish_seen_subcommand_from tables' -l quiet -d 'Print no summary'
complete -c tolquin -s h -l help -d 'Show help'
