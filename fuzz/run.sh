#!/usr/bin/env bash
# Builds the fuzzers and runs each for the given time, or for five million inputs at most, as many at once as there are
# processors. New inputs go to build/fuzz/corpus. Fails if there is a finding; its input is then in build/fuzz/findings.
# usage: fuzz/run.sh <seconds per target> [target...]
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/requirements.sh
time=${1:?seconds per target}
shift
targets=("$@")
[ $# -gt 0 ] || targets=(debugInfo frontEnd texts replies table)
require_packages "${build_packages[@]}" clang
cmake --preset asan >/dev/null
cmake --build --preset asan -j "$(nproc)" --target fuzzers

# Programs for the fuzzer of debugging information to begin with.
make_programs() {
  local option
  mkdir -p build/fuzz/seeds/debugInfo
  for option in -gdwarf-4 -gdwarf-5 '-O2 -g'; do
    # shellcheck disable=SC2086 # $option can be several options
    echo 'struct s { int a[3]; struct s *next; } v = {{1}}; static char *(*f[2])(long); int main() { return v.a[0] + !f[0]; }' |
      g++ -x c++ $option -nostartfiles -Wl,-emain - -o "build/fuzz/seeds/debugInfo/program${option// /}" -w
  done
}

run_fuzzer() {
  local target=$1 corpus=build/fuzz/corpus/$1 seeds=fuzz/corpus/$1
  [ -d "$seeds" ] || seeds=build/fuzz/seeds/$target
  mkdir -p "$corpus"
  build/asan/fuzz/fuzz_"$target" -max_total_time="$time" -runs=5000000 -close_fd_mask=2 -timeout=20 -rss_limit_mb=4096 \
    -print_final_stats=1 -artifact_prefix="build/fuzz/findings/$target-" "$corpus" "$seeds" >"build/fuzz/$target.log" 2>&1 ||
    { tail -n 30 "build/fuzz/$target.log"; return 1; }
  grep -aE 'DONE' "build/fuzz/$target.log" | tail -n 1 | sed "s/^/$target: /" || true
}

mkdir -p build/fuzz/findings
make_programs
export -f run_fuzzer
export time
printf '%s\0' "${targets[@]}" | xargs -0 -P "$(nproc)" -I{} bash -c 'set -eo pipefail; run_fuzzer {}'
