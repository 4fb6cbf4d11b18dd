#!/usr/bin/env bash
# Measures the reader of debugging information against gdb, nm, abidw and a bare walk with libdw: on generated programs, and
# on the programs named. Medians of three alternated rounds, in seconds; a table in Markdown.
# usage: bench/reader.sh [PROGRAM...]
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/requirements.sh
. bench/common.sh
require_packages "${build_packages[@]}"
export LC_ALL=C DEBUGINFOD_URLS=
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target bareWalk inventoryRows >&2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rows=build/release/tests/inventoryRows walk=build/release/bench/bareWalk

median() { sort -n "$1" | sed -n 2p; }
gdb_variables() { gdb -nx -batch -ex 'info variables' "$1"; }

measure() { # name, program
  local round command
  rm -f "$work"/time.*
  for round in 1 2 3; do
    for command in "$rows" "$walk" "$walk --attributes" "nm -lS" gdb_variables "abidw --noout"; do
      command -v "${command%% *}" >/dev/null || continue
      # shellcheck disable=SC2086 -- a command with its options
      seconds $command "$2" >>"$work/time.${command//[\/ ]/_}" || true
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
  generate_program "$count" "$work/$count"
  measure "$count variables" "$work/$count"
done
for program in "$@"; do measure "$(basename "$program")" "$program"; done
