#!/usr/bin/env bash
# Runs all measurements and writes docs/performance.md. Takes about ten minutes.
# usage: [MEASURE_WITH=COMMAND] bench/report.sh [ARGUMENT...]     arguments: those of bench/frontend.sh
set -euo pipefail
cd "$(dirname "$0")/.."
report=docs/performance.md
{
  echo "# Performance"
  echo
  echo "Written by \`bench/report.sh\` on $(date +%F), on a machine with $(nproc) processors"
  echo "($(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), Linux $(uname -r | cut -d- -f1), $(g++ --version | head -n 1))."
  echo "Each ratio compares measurements of one run on the same input. Figures are medians of several rounds, except gdb on large"
  echo "programs, measured once. They vary by a tenth, those of a bare exchange without a fixed processor by a factor of three."
  echo
  echo "## The core: tolquin.exe"
  echo
  bench/run.sh
  echo
  cat bench/notes.md
  echo
  echo "## The front end"
  echo
  echo "Written by \`${MEASURE_WITH:+MEASURE_WITH='$MEASURE_WITH' }bench/frontend.sh\`: medians of five rounds; a column \`: X\` is the"
  echo "ratio of seconds to those of X."
  echo
  bench/frontend.sh "$@"
  echo
  cat bench/frontEndNotes.md
} >"$report.new"
mv "$report.new" "$report"
