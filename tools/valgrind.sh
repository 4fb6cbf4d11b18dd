#!/usr/bin/env bash
# Runs the tests with every program of this project, and the tests themselves, under valgrind's memcheck. Takes about 15 minutes.
# Prints what memcheck reported, and fails if there is anything. Logs and the output of the tests go to build/valgrind.
# usage: tools/valgrind.sh [ctest arguments]
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/requirements.sh
require_packages "${build_packages[@]}" "${test_packages[@]}" valgrind
build=$PWD/build/valgrind
rm -rf "$build/logs"
mkdir -p "$build/logs"
chmod 1777 "$build/logs"
# TOLQUIN_SANITIZED omits what cannot work in a program that runs several times slower.
cmake --preset debug -B "$build" -DBUILD_TESTING=ON -DTOLQUIN_SANITIZED=ON -DCMAKE_CXX_FLAGS=-O1 >/dev/null
cmake --build "$build" -j "$(nproc)"

# Moves each program to a directory next to it, and puts a script that runs it under valgrind in its place.
programs=(tolquin tolquin.exe libexec/tolquin/addr2line tests/{tolquinTests,inventoryRows} fuzz/replay_{texts,replies,table,frontEnd})
for program in "${programs[@]}"; do
  if [ "$(head -c 2 "$build/$program")" != '#!' ]; then
    mkdir -p "$build/$program.d"
    mv "$build/$program" "$build/$program.d/${program##*/}"
  fi
  cat >"$build/$program" <<SCRIPT
#!/bin/sh
exec $(command -v valgrind) -q --leak-check=full --show-leak-kinds=definite --log-file='$build/logs/%p' \\
  '$build/$program.d/${program##*/}' "\$@"
SCRIPT
  chmod +x "$build/$program"
done

# In these tests, descriptors, file sizes, system calls or the time until an error message are limited, which valgrind needs itself.
omitted='Fault.EachSystemCall|Fault.MessagesOfRareFailures|FrontEnd.ErrorsSayWhatToDo|List.WrongUsageAndBadInput|List.FewDescriptors'
omitted+='|A2L.ToolThatCannotBeExecuted'
status=0
ctest --test-dir "$build" --output-on-failure -j "$(nproc)" -E "$omitted" "$@" >"$build/ctest.log" || status=$?
tail -n 20 "$build/ctest.log"
find "$build/logs" -type f -size +0 -exec cat {} + | tee "$build/reports"
[ ! -s "$build/reports" ] && exit "$status"
exit 1
