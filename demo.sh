#!/usr/bin/env bash
# Builds tolquin and the example program, and shows the program's variables, also as the suite's table.
set -euo pipefail
cd "$(dirname "$0")"
. tools/requirements.sh
require_packages "${build_packages[@]}"
build_preset release -DBUILD_TESTING=OFF

directory=build/example
mkdir -p "$directory"
make -s -C examples/inventory PROGRAM="$PWD/$directory/inventory"
build/release/tolquin list "$directory/inventory"
echo
echo "The suite's table:"
build/release/tolquin tables -o "$directory/tables" "$directory/inventory"
PATH=$PWD/build/release/libexec/tolquin:$PATH DB=$directory/tables EXEFILE=$directory/inventory \
  build/release/tolquin.exe "$directory/tables" "$directory/inventory"
head -n 5 "$directory/tables/tGlobalVarDef.tbl"
