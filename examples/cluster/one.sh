#!/bin/bash
# Lists the variables of one executable. The result of /srv/bin/prog goes to DIRECTORY/srv/bin/prog.jsonl, which is written
# completely or not at all.
# usage: one.sh DIRECTORY EXECUTABLE
set -euo pipefail
result=$1$(realpath "$2").jsonl
mkdir -p "$(dirname "$result")"
tolquin list -j 1 --format jsonl "$2" >"$result.new" || { rm "$result.new"; exit 1; }
mv "$result.new" "$result"
