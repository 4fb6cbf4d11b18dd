#!/usr/bin/env bash
# Tests the recipes of docs/many-programs.md: for GNU parallel on ten programs, one of them damaged, and for Slurm on one.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/requirements.sh
require_packages "${build_packages[@]}" parallel
build_preset release
export PATH=$PWD/build/release:$PATH
cluster=$PWD/examples/cluster
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
cp "$cluster"/* .

for i in {1..10}; do
  echo "int shared; char own_$i[$i]; int main(void) { return 0; }" | gcc -g -x c - -o "program $i"
done
head -c 3000 "program 4" >damaged && mv damaged "program 4"
ls -d "$PWD"/program* >executables.txt

run() { parallel --joblog list.log --resume-failed -a executables.txt ./one.sh results {}; }
expect() { # what, expected, actual
  [ "$2" = "$3" ] || { printf '%s: expected\n%s\nbut found\n%s\n' "$1" "$2" "$3" >&2; exit 1; }
}
together() { find results -name '*.jsonl' -exec cat {} + | tolquin list "$@" /dev/stdin; }

status=0
run 2>messages || status=$?
expect "failed jobs" 1 "$status"
grep -q 'program 4: ' messages || { cat messages >&2; exit 1; }
expect "results" 9 "$(find results -name '*.jsonl' | wc -l)"
expect "other files" 0 "$(find results -type f ! -name '*.jsonl' | wc -l)"
expect "bytes" "executable,variables,bytes,unsized
\"$work/program 10\",2,14,0" "$(together --by executable --sort -bytes -n 1 --format csv | tr -d '\r')"
expect "variables" 18 "$(together --format jsonl | wc -l)"

cp "program 5" "program 4"
run
expect "results after the repair" 10 "$(find results -name '*.jsonl' | wc -l)"
expect "lines of the log: a header, ten jobs, one retry" 12 "$(wc -l <list.log)"

rm -r results
SLURM_ARRAY_TASK_ID=3 bash list.sbatch
expect "results of a task" 1 "$(find results -name '*.jsonl' | wc -l)"
echo "the recipes for many programs work"
