#!/usr/bin/env bash
# Runs every measurement and writes docs/performance.md. Takes about ten minutes.
# usage: [MEASURE_WITH=COMMAND] bench/report.sh [ARGUMENT...]     the arguments are those of bench/frontend.sh
set -euo pipefail
cd "$(dirname "$0")/.."
report=docs/performance.md
{
  echo "# Performance"
  echo
  echo "Written by \`bench/report.sh\` on $(date +%F), on a machine with $(nproc) processors"
  echo "($(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), Linux $(uname -r | cut -d- -f1), $(g++ --version | head -n 1))."
  echo "Each row is a ratio of one run on the same input; medians of several rounds. The machine is noisy: figures vary by a"
  echo "tenth, those of a bare exchange left to the scheduler by a factor of three."
  echo
  echo "## The core: tolquin.exe"
  echo
  bench/run.sh
  echo
  cat bench/notes.md
  echo
  echo "## The front end"
  echo
  echo "Written by \`bench/frontend.sh\`: medians of five rounds in turn; a column \`: X\` is the ratio to X, of the seconds."
  echo
  bench/frontend.sh "$@"
  echo
  cat bench/frontEndNotes.md
} >"$report.new"
mv "$report.new" "$report"
