#!/bin/bash
# Puts the result tables below a directory together: one table, with the executable in front of each row.
# usage: gather.sh results > all.tsv
set -euo pipefail
header=Executable
find "$1" -name '*.vym' -type d | sort | while read -r directory; do
  name=${directory#"$1"}
  tolquin show "$directory" --format tsv |
    awk -v name="${name%.vym}" -v header="$header" 'NR > 1 || header { print (NR == 1 ? header : name) "\t" $0 }'
  header=
done
