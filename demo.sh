#!/usr/bin/env bash
# Builds tolquin, compiles the example program, scans it and shows the resulting table.
set -euo pipefail
cd "$(dirname "$0")"
. tools/requirements.sh
require_packages "${build_packages[@]}" bsdextrautils
build_preset release -DBUILD_TESTING=OFF

directory=build/example
mkdir -p "$directory"
make -s -C examples/inventory PROGRAM="$PWD/$directory/inventory"
build/release/tolquin scan "$directory/inventory"

echo
echo "The columns TypedefType, StructType and LineCount left out:"
echo
{
  printf 'Key\tVariableName\tDataType\tSize\tDRef\tSourceFile\tLine\n'
  cut -f 1-5,8-9 "$directory/inventory.vym/tGlobalVarDef.tbl" | sed "s|$PWD/examples/inventory/||"
} | column -t -s "$(printf '\t')"
