#!/usr/bin/env bash
# Measures tolquin.exe and prints a table in Markdown. Each figure is next to its lower bound, measured alternately on the same
# input; both are medians of several rounds. Takes some minutes, as addr2line alone needs half a minute for 100,000 variables.
# usage: bench/run.sh [sizes...]      default: 300 3000 20000 100000
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/requirements.sh
. bench/common.sh
require_packages "${build_packages[@]}" libbenchmark-dev
export LC_ALL=C
sizes=("$@")
[ $# -gt 0 ] || sizes=(300 3000 20000 100000)
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target bench >&2
bin=build/release/bench tolquin=$PWD/build/release/tolquin.exe
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
row() { # name, seconds of tolquin.exe, seconds of its lower bound
  awk -v w="$1" -v o="$2" -v b="$3" 'BEGIN { printf "| %-54s | %9.3f | %9.3f | %6.2f |\n", w, o, b, o / b }'
}
alone() { printf '| %-54s | %9s | | |\n' "$1" "$2"; }

# Generates a program of $1 global variables in $work/$1, with its tables and a list of addresses.
generate() {
  local count=$1 directory=$work/$1
  mkdir -p "$directory"
  generate_program "$count" "$directory/program"
  nm -S "$directory/program" | awk '$4 ~ /^variable_/ { sub(/^0+/, "", $1); print "0" $1, $2, $4 }' |
    sort >"$directory/objdump.1"
  awk 'NR == FNR { address[$3] = substr($1, 2); next }
    match($0, /variable_[0-9]+/) && /;$/ && !/case/ {
      print substr($0, 1, length($0) - 1) " /* 0x" address[substr($0, RSTART, RLENGTH)] " */;" }' \
    "$directory/objdump.1" "$directory/program.c" >"$directory/objdump.txt"
  printf 'char\t1\ndouble\t8\nint\t4\nstruct point\t8\nunsigned long\t8\n' >"$directory/sizes.tbl"
  cut -d' ' -f1 "$directory/objdump.1" >"$directory/addresses"
}
run_ours() { DB=$1 EXEFILE=$1/program seconds "$tolquin" "$1" "$1/program"; }
bare_exchange() { "$@" "$bin/exchangeBench" exchange "$directory/program" <"$directory/addresses"; }

printf '| %-54s | %9s | %9s | %6s |\n| --- | ---: | ---: | ---: |\n' "tolquin.exe : lower bound, in seconds" tolquin bound ratio
BENCH_DIRECTORY=$work "$bin/tableBench" --benchmark_format=csv --benchmark_repetitions=5 \
  --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true 2>/dev/null >"$work/table"
table_median() { grep "^\"$1/.*_median" "$work/table" | cut -d, -f"${2:-3}"; }
row "100000 items: inserts : writing the same records" "$(table_median inserts)" "$(table_median bareWrites)"
row "100000 items: index build : inserts only" "$(table_median indexBuild)" "$(table_median inserts)"
alone "memory of the table, KiB" "$(table_median insertsAndLookups 11 | cut -d. -f1)"

for count in "${sizes[@]}"; do
  generate "$count"
  directory=$work/$count
  rounds=11
  [ "$count" -le 3000 ] || rounds=5
  rm -f "$work"/{ours,bare,bound}
  for ((i = 0; i < rounds; ++i)); do
    bare_exchange >>"$work/bare"
    bare_exchange taskset -c 0 >>"$work/bound"
    run_ours "$directory" >>"$work/ours"
  done
  [ "$(wc -l <"$directory/tGlobalVarDef.tbl")" -eq "$count" ] || { echo "rows are missing" >&2 && exit 1; }
  row "run, $count variables : bare exchange" "$(median <"$work/ours")" "$(median <"$work/bare")"
  row "run, $count variables : the same on one processor" "$(median <"$work/ours")" "$(median <"$work/bound")"
done

generate 10
for _ in 1 2 3 4 5; do run_ours "$work/10"; done >"$work/ours"
alone "run, 10 variables" "$(median <"$work/ours")"
for _ in 1 2 3 4 5; do "$bin/exchangeBench" sessions "$work/10/program"; done >"$work/sessions"
alone "start and end of an addr2line session" "$(cut -d' ' -f1 "$work/sessions" | median)"
alone "start and end of a gdb session" "$(cut -d' ' -f2 "$work/sessions" | median)"

[ -d "$work/3000" ] || generate 3000
fallback=$work/fallback
mkdir "$fallback"
head -n 1000 "$work/3000/objdump.1" >"$fallback/objdump.1"
: >"$fallback/objdump.txt"
cp "$work/3000"/{sizes.tbl,program} "$fallback"
cut -d' ' -f3 "$fallback/objdump.1" | sed 's/^/info var /' >"$fallback/queries"
gdb_batch() { gdb --readnow --nw --nx "$fallback/program" <"$fallback/queries"; }
rm -f "$work"/{ours,bare}
for _ in 1 2 3 4 5; do
  seconds gdb_batch >>"$work/bare"
  run_ours "$fallback" >>"$work/ours"
done
row "1000 queries to gdb : gdb in batch mode" "$(median <"$work/ours")" "$(median <"$work/bare")"

largest=$work/${sizes[-1]}
DB=$largest EXEFILE=$largest/program "$tolquin" "$largest" "$largest/program" &
pid=$!
while line=$(grep VmHWM "/proc/$pid/status" 2>/dev/null); do
  peak=$line
  sleep 0.02
done
alone "peak memory of the run with ${sizes[-1]} variables, kB" "$(awk '{ print $2 }' <<<"$peak")"
