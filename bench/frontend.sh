#!/usr/bin/env bash
# Compares the front end with gdb, nm, abidw and a bare walk with libdw, and prints tables in Markdown: for generated programs
# with many variables, large C++ programs (this project's tests linked several times over, and each PROGRAM), small programs
# (those after --small), and the other commands compared with list. Figures are medians of wall-clock seconds over five rounds,
# except gdb on large programs, measured once.
# usage: [MEASURE_WITH="chrt -f 50"] bench/frontend.sh [PROGRAM...] [--small PROGRAM...]
# MEASURE_WITH is a prefix for each measured command; the one above, for root, keeps other processes from disturbing it.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/requirements.sh
. bench/common.sh
require_packages "${build_packages[@]}" "${test_packages[@]}" abigail-tools
export LC_ALL=C DEBUGINFOD_URLS=
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target tolquin bareWalk >&2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
tolquin=$PWD/build/release/tolquin walk=$PWD/build/release/bench/bareWalk rounds=5

large=() small=()
list=large
for program in "$@"; do
  if [ "$program" = --small ]; then list=small; else declare -n programs=$list && programs+=("$(realpath "$program")"); fi
done

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b + 0 > 0) printf "%.3g", a / b; else printf "-" }'; }
megabytes() { awk -v kb="$1" 'BEGIN { printf "%.0f", kb / 1024 }'; }
# Size of .debug_info in megabytes.
debug_info_size() {
  local size
  size=$(readelf -SW "$1" | sed -n 's/^ *\[ *[0-9]*\] \.debug_info *//p' | awk '{ print $4 }')
  awk -v bytes="$((16#$size))" 'BEGIN { printf "%.1f", bytes / 1e6 }'
}

# Links $2 copies of this project's tests to the program $1, which is never run.
link_large() {
  local build=$PWD/build/bench-asan
  cmake --preset debug -B "$build" -DBUILD_TESTING=ON "-DCMAKE_CXX_FLAGS=-fsanitize=address,undefined -O1" >/dev/null
  cmake --build "$build" -j "$(nproc)" --target tolquinTests >&2
  local objects=() copy object
  mkdir "$work/objects"
  for ((copy = 0; copy < $2; ++copy)); do
    while read -r object; do
      ln -s "$object" "$work/objects/$copy.${#objects[@]}.o"
      objects+=("$work/objects/$copy.${#objects[@]}.o")
    done < <(find "$build"/{src,debuginfo,suite,frontend,tests} -name '*.cpp.o')
  done
  g++ -fsanitize=address,undefined -Wl,-z,muldefs,--unresolved-symbols=ignore-all "${objects[@]}" -o "$1"
}

many_variables() {
  local seconds memory versus twice=-
  echo '| variables | `list`, s | : gdb | : `nm -lS` | : `abidw` | : bare walk | : the same with attributes | `list`, MB | : half as many |'
  echo '| ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: |'
  for count in 3000 20000 100000 200000; do
    generate_program "$count" "$work/$count"
    mapfile -t lines < <(bench/compare.py "$rounds" "$tolquin list $work/$count" \
      "gdb -nx -batch -ex 'info variables' $work/$count" "nm -lS $work/$count" "abidw --noout $work/$count" \
      "$walk $work/$count" "$walk --attributes $work/$count")
    if [ "$count" -eq 200000 ]; then
      twice=$(bench/compare.py "$rounds" "$tolquin list $work/200000" "$tolquin list $work/100000" | sed -n '2s/.* //p')
    fi
    read -r seconds _ memory _ <<<"${lines[0]}"
    printf '| %s | %s ' "$count" "$seconds"
    for versus in "${lines[@]:1}"; do printf '| %s ' "${versus##* }"; done
    printf '| %s | %s |\n' "$(megabytes "$memory")" "$twice"
  done
}

large_programs() {
  local seconds memory lines size gdb
  echo '| program | `.debug_info`, MB | `list -j1`, s | MB/s | `-j2` : `-j1` | `-j1` : bare walk | `-j1` : gdb | `list -j1`, MB |'
  echo '| --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: |'
  link_large "$work/tests-7-times" 7
  for program in "$work/tests-7-times" "${large[@]}"; do
    mapfile -t lines < <(bench/compare.py "$rounds" "$tolquin list -j1 $program" "$tolquin list -j2 $program" "$walk $program")
    # Only once, as it takes half a minute. MEASURE_WITH is split into words.
    # shellcheck disable=SC2086
    gdb=$(seconds ${MEASURE_WITH:-} gdb -nx -batch -ex 'info variables' "$program")
    read -r seconds _ memory _ <<<"${lines[0]}"
    size=$(debug_info_size "$program")
    printf '| %s | %s | %s | %.0f | %s | %s | %s | %s |\n' "$(basename "$program")" "$size" "$seconds" \
      "$(ratio "$size" "$seconds")" "$(ratio 1 "${lines[1]##* }")" "${lines[2]##* }" "$(ratio "$seconds" "$gdb")" \
      "$(megabytes "$memory")"
  done
}

small_programs() {
  [ ${#small[@]} -gt 0 ] || return 0
  local lines
  echo
  echo '| program | `.debug_info`, MB | `list`, s | : gdb | : `nm -lS` |'
  echo '| --- | ---: | ---: | ---: | ---: |'
  for program in "${small[@]}"; do
    mapfile -t lines < <(bench/compare.py "$rounds" "$tolquin list $program" \
      "gdb -nx -batch -ex 'info variables' $program" "nm -lS $program")
    printf '| %s | %s | %s | %s | %s |\n' "$(basename "$program")" "$(debug_info_size "$program")" "${lines[0]%% *}" \
      "${lines[1]##* }" "${lines[2]##* }"
  done
}

# Compiles $work/100000.c, changed by the sed command $2, to $work/$1.
change_program() {
  sed -E "$2" "$work/100000.c" >"$work/$1.c"
  gcc -g -O0 -fno-pie -no-pie -w "$work/$1.c" -o "$work/$1"
}

commands() {
  local name arguments seconds memory lines
  [ -e "$work/100000" ] || generate_program 100000 "$work/100000"
  change_program grown '0,/variable_77\[4\]/s//variable_77[8]/'
  change_program tenth 's/variable_([0-9]*0)\b/renamed_\1/g'
  change_program renamed 's/variable_/renamed_/g'
  echo '| command, 100,000 variables | s | : `list` | MB |'
  echo '| --- | ---: | ---: | ---: |'
  while IFS=: read -r name arguments; do
    mapfile -t lines < <(bench/compare.py "$rounds" "$tolquin $arguments" "$tolquin list $work/100000")
    read -r seconds _ memory _ <<<"${lines[0]}"
    printf '| %s | %s | %s | %s |\n' "$name" "$seconds" "${lines[1]##* }" "$(megabytes "$memory")"
  done <<COMMANDS
\`list\`:list $work/100000
\`list --format json\`:list --format json $work/100000
\`list --by file\`:list --by file $work/100000
\`report\`:report -o $work/page.html $work/100000
\`diff\`, one variable grown:diff $work/100000 $work/grown
\`diff\`, a tenth renamed:diff $work/100000 $work/tenth
\`diff\`, all renamed:diff $work/100000 $work/renamed
\`export\`, over an existing database:export --sqlite $work/base.db $work/100000
COMMANDS
}

many_variables
echo
large_programs
small_programs
echo
commands
