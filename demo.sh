#!/usr/bin/env bash
# Builds tolquin, compiles the example program, scans it and shows the resulting table.
set -euo pipefail
cd "$(dirname "$0")"
. tools/requirements.sh
require_packages "${build_packages[@]}"
build_preset release -DBUILD_TESTING=OFF

directory=build/example
mkdir -p "$directory"
make -s -C examples/inventory PROGRAM="$PWD/$directory/inventory"
build/release/tolquin scan "$directory/inventory"
echo
build/release/tolquin show "$directory/inventory"
