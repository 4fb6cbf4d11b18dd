#!/usr/bin/env bash
# Builds the fuzzers and runs each for the given time, or for five million inputs at most. New inputs go to build/fuzz/corpus.
# Fails at the first finding, whose input is then in build/fuzz/findings.
# usage: fuzz/run.sh <seconds per target> [target...]
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/requirements.sh
require_packages "${build_packages[@]}" clang
build_preset fuzz
time=${1:?seconds per target}
shift
targets=("$@")
[ $# -gt 0 ] || targets=(texts replies table debugInfo frontEnd)
mkdir -p build/fuzz/findings
for target in "${targets[@]}"; do
  corpus=build/fuzz/corpus/$target seeds=fuzz/corpus/$target
  mkdir -p "$corpus"
  if [ "$target" = debugInfo ]; then
    seeds=build/fuzz/seeds
    mkdir -p "$seeds"
    for option in -gdwarf-4 -gdwarf-5 '-O2 -g'; do
      # shellcheck disable=SC2086 -- $option can be several options
      echo 'struct s { int a[3]; struct s *next; } v = {{1}}; static char *(*f[2])(long); int main() { return v.a[0] + !f[0]; }' |
        g++ -x c++ $option -nostartfiles -Wl,-emain - -o "$seeds/program${option// /}" -w
    done
  fi
  build/fuzz/fuzz/fuzz_"$target" -max_total_time="$time" -runs=5000000 -close_fd_mask=2 -timeout=20 -rss_limit_mb=4096 -print_final_stats=1 \
    -artifact_prefix="build/fuzz/findings/$target-" "$corpus" "$seeds" >"build/fuzz/$target.log" 2>&1 ||
    { tail -n 30 "build/fuzz/$target.log"; exit 1; }
  grep -aE 'DONE' "build/fuzz/$target.log" | tail -n 1 | sed "s/^/$target: /" || true
done
