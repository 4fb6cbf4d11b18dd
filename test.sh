#!/usr/bin/env bash
# Builds everything and runs all tests. First installs missing packages (on Debian as root; otherwise prints which to install).
# usage: test.sh [preset]      release (default), debug or asan
set -euo pipefail
cd "$(dirname "$0")"
. tools/requirements.sh
require_packages "${build_packages[@]}" "${test_packages[@]}"
preset=${1:-release}
build_preset "$preset" -DBUILD_TESTING=ON
dpkg-query -W "${page_packages[@]}" >/dev/null 2>&1 ||
  echo "The page of tolquin report will not be tested; that requires ${page_packages[*]}." >&2
# More at once than there are processors, because tests often wait for timeouts.
ctest --preset "$preset" -j "$((2 * $(nproc)))"
