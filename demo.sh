#!/usr/bin/env bash
# Builds tolquin.exe, compiles the example program, runs tolquin.exe on it and shows the resulting table.
set -euo pipefail
cd "$(dirname "$0")"
. tools/requirements.sh
require_packages g++ cmake make binutils gdb bsdextrautils
build_preset release -DBUILD_TESTING=OFF

directory=build/example
mkdir -p "$directory"
# From the directory of the sources, so that the paths in the table are short.
make -s -C examples/inventory PROGRAM="$PWD/$directory/inventory"
examples/make_tables.sh "$directory/inventory" "$directory/inventory.vym"
DB=$directory/inventory.vym EXEFILE=$directory/inventory \
  build/release/tolquin.exe "$directory/inventory.vym" "$directory/inventory"

echo
echo "$directory/inventory.vym/tGlobalVarDef.tbl (the columns TypedefType, StructType and LineCount left out):"
echo
{
  printf 'Key\tVariableName\tDataType\tSize\tDRef\tSourceFile\tLine\n'
  cut -f 1-5,8-9 "$directory/inventory.vym/tGlobalVarDef.tbl" | sed "s|$PWD/examples/inventory/||"
} | column -t -s "$(printf '\t')"
