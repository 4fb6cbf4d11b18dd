#!/usr/bin/env bash
# Mutation testing: applies random one-line changes (mutants) to the sources, one at a time, in a copy of the tree, and runs the
# tests on each. Prints the mutants that survive, and the rate of those that the tests find. Mutants that do not compile do not
# count. The same seed gives the same mutants.
# usage: tools/mutate.sh [number of mutants [seed [folder...]]]      default: 300 1 src debuginfo suite frontend
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/requirements.sh
require_packages "${build_packages[@]}" "${test_packages[@]}" rsync
number=${1:-300} seed=${2:-1}
[ $# -le 2 ] && folders=(src debuginfo suite frontend) || folders=("${@:3}")

tree=build/mutants/tree results=build/mutants/results
mkdir -p "$tree"
git ls-files -z | rsync -a --from0 --files-from=- . "$tree"
build() { cmake --build "$tree/build" -j "$(nproc)" >build/mutants/log 2>&1; }
cmake -S "$tree" -B "$tree/build" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0 -DBUILD_TESTING=ON >/dev/null
build || { tail build/mutants/log >&2; exit 1; }

# Whether a test fails, or does not end, in the tree as it is. The quick tests come first.
fails() { ! timeout -k 10 600 ctest --test-dir "$tree/build" -j "$(nproc)" --timeout 60 --stop-on-failure "$@" >build/mutants/log 2>&1 </dev/null; }
found() { fails -E "$slow" || fails -R "$slow"; }
slow='Witnessed|ReportPage|Soak|Fault|Example|Workflow'
if found; then
  echo "the tests fail on the original sources" >&2
  exit 1
fi

: >"$results"
git ls-files "${folders[@]}" | grep -E '\.(cpp|h)$' | xargs python3 tools/mutants.py "$seed" "$number" >build/mutants/list
while IFS=$'\t' read -r file line what new; do
  awk -v line="$line" -v new="${new//\\/\\\\}" 'NR == line { print new; next } { print }' "$file" >"$tree/$file"
  if ! build; then
    outcome=uncompilable
  elif found; then
    outcome=found
  else
    outcome=survives
    printf '%s:%s: %s\n  %s\n' "$file" "$line" "$what" "$new"
  fi
  printf '%s\t%s:%s\t%s\t%s\n' "$outcome" "$file" "$line" "$what" "$new" >>"$results"
  cp "$file" "$tree/$file"
done <build/mutants/list

awk -F '\t' '{ count[$1]++ } END {
  tested = count["found"] + count["survives"]
  printf "%d mutants, %d of which do not compile; of the other %d, the tests find %d, %.0f %%\n",
    NR, count["uncompilable"], tested, count["found"], tested ? 100 * count["found"] / tested : 0
}' "$results"
