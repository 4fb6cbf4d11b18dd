#!/usr/bin/env bash
# Measures the reader of debugging information against gdb, nm, abidw and a bare walk with libdw: on generated programs, and
# on the programs named. Medians of three alternated rounds, in seconds; a table in Markdown.
# usage: bench/reader.sh [PROGRAM...]
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/requirements.sh
require_packages "${build_packages[@]}"
export LC_ALL=C DEBUGINFOD_URLS=
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target bareWalk inventoryRows >&2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rows=build/release/tests/inventoryRows walk=build/release/bench/bareWalk

generate() { # a program of $1 globals of mixed types
  awk -v n="$1" 'BEGIN {
    split("int;unsigned long;char *;double;struct point", type, ";")
    print "struct point { int x, y; };"
    for (i = 0; i < n; ++i) printf "%s%s variable_%d%s;\n", i % 3 ? "" : "static ", type[i % 5 + 1], i, i % 7 ? "" : "[4]"
    print "void *use(int i) { switch (i) {"
    for (i = 0; i < n; i += 3) printf "case %d: return &variable_%d;\n", i, i
    print "} return 0; }\nint main(void) { return use(1) != 0; }" }' >"$work/$1.c"
  gcc -g -O0 -fno-pie -no-pie -w "$work/$1.c" -o "$work/$1"
}
seconds() {
  local start=$EPOCHREALTIME
  "$@" >/dev/null 2>&1 || true
  awk -v a="$start" -v b="$EPOCHREALTIME" 'BEGIN { printf "%.3f\n", b - a }'
}
median() { sort -n "$1" | sed -n 2p; }
gdb_variables() { gdb -nx -batch -ex 'info variables' "$1"; }

measure() { # name, program
  local round command
  rm -f "$work"/time.*
  for round in 1 2 3; do
    for command in "$rows" "$walk" "$walk --attributes" "nm -lS" gdb_variables "abidw --noout"; do
      command -v "${command%% *}" >/dev/null || continue
      # shellcheck disable=SC2086 -- a command with its options
      seconds $command "$2" >>"$work/time.${command//[\/ ]/_}"
    done
  done
  printf '| %-20s' "$1"
  for command in "$rows" "$walk" "$walk --attributes" "nm -lS" gdb_variables "abidw --noout"; do
    printf ' | %8s' "$(median "$work/time.${command//[\/ ]/_}" 2>/dev/null || true)"
  done
  printf ' | %8s |\n' "$(/usr/bin/time -f %M "$rows" "$2" 2>&1 >/dev/null | tail -n 1)"
}

echo '| program | reader, rows written | bare walk | with attributes | nm -lS | gdb info variables | abidw | reader, kB |'
echo '| --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: |'
for count in 3000 20000 100000 200000; do
  generate "$count"
  measure "$count variables" "$work/$count"
done
for program in "$@"; do measure "$(basename "$program")" "$program"; done
