#!/usr/bin/env bash
# Tests the Debian package: builds it, checks it with lintian, installs it, lists a program with it, and removes it again.
# Must be run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/requirements.sh
require_packages "${build_packages[@]}" dpkg-dev man-db bash-completion lintian
build_preset release
rm -rf build/package
cpack -G DEB --config build/release/CPackConfig.cmake -B build/package >/dev/null
package=$(echo build/package/*.deb)
dpkg-deb --field "$package" Package Version Depends
lintian --allow-root --fail-on error,warning "$package"
dpkg -i "$package" >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
make -s -C examples/inventory PROGRAM="$work/inventory"
(
  cd "$work"
  [ "$(tolquin list --format jsonl --where 'file ~ main.cpp|parts.c' inventory | wc -l)" -eq 43 ]
  tolquin tables -o tables inventory
  PATH=/usr/libexec/tolquin:$PATH DB=tables EXEFILE=inventory tolquin.exe tables inventory
  [ "$(tolquin list --format jsonl tables | wc -l)" -eq 43 ]
)
man -P cat tolquin tolquin.exe | grep -q 'global variables'
bash -ic '. /usr/share/bash-completion/completions/tolquin && complete -p tolquin' >/dev/null 2>&1

dpkg -r tolquin >/dev/null
for left in /usr/bin/tolquin /usr/bin/tolquin.exe /usr/libexec/tolquin; do
  [ ! -e "$left" ] || { echo "$left was not removed" >&2; exit 1; }
done
echo "the package installs, lists and removes cleanly"
