#!/usr/bin/env python3
"""Runs commands alternately for several rounds, and prints a line for each: its wall-clock seconds, its processor seconds,
its peak memory in kB (of the largest process; never below that of this script, about 14,000), and the ratio of the
seconds of the first command to its own. All are medians over the rounds. A missing command gives a line of dashes.
usage: compare.py ROUNDS COMMAND...      MEASURE_WITH: a prefix for each command, such as "chrt -f 50"
"""
import os
import shlex
import shutil
import statistics
import subprocess
import sys
import time


def run(command):
    """Returns the wall-clock seconds, processor seconds and peak memory of one run."""
    start = time.perf_counter()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, _, usage = os.wait4(process.pid, 0)
    return time.perf_counter() - start, usage.ru_utime + usage.ru_stime, usage.ru_maxrss


def main():
    prefix = shlex.split(os.environ.get("MEASURE_WITH", ""))
    commands = [shlex.split(each) for each in sys.argv[2:]]
    runs = [[] for _ in commands]
    for round in range(int(sys.argv[1]) + 1):
        for command, results in zip(commands, runs):
            if shutil.which(command[0]) is None:
                continue
            result = run(prefix + command)
            if round > 0:  # the first round fills the caches
                results.append(result)
    for results in runs:
        if not results:
            print("- - - -")
            continue
        seconds, processor, memory = (statistics.median(column) for column in zip(*results))
        ratio = statistics.median(first[0] / each[0] for first, each in zip(runs[0], results))
        print(f"{seconds:.4f} {processor:.4f} {memory:.0f} {ratio:.2f}")


main()
