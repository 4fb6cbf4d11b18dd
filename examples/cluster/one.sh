#!/bin/bash
# Lists the variables of one executable into a directory of results: that of /srv/bin/prog into DIRECTORY/srv/bin/prog.jsonl.
# The result is there as a whole or not at all.
# usage: one.sh DIRECTORY EXECUTABLE
set -euo pipefail
result=$1$(realpath "$2").jsonl
mkdir -p "$(dirname "$result")"
tolquin list -j 1 --format jsonl "$2" >"$result.new" || { rm "$result.new"; exit 1; }
mv "$result.new" "$result"
