#!/usr/bin/env python3
"""Prints random one-line changes of C++ sources, for tools/mutate.sh.

usage: mutants.py SEED NUMBER FILE...

Prints one change per line: file, line number, description and new line, separated by tabs. The same arguments give the
same changes as long as the files are the same.
"""
import random
import re
import sys

# Patterns and their replacements: common mistakes.
CHANGES = [
    (r" < ", " <= "), (r" <= ", " < "), (r" > ", " >= "), (r" >= ", " > "),
    (r" == ", " != "), (r" != ", " == "), (r" && ", " || "), (r" \|\| ", " && "),
    (r" \+ 1\b", ""), (r" - 1\b", ""), (r" \+ ", " - "), (r" - ", " + "),
    (r"\btrue\b", "false"), (r"\bfalse\b", "true"), (r"\(!", "("), (r"\bif \(", "if (!("),
    (r"\bbreak;", ""), (r"\bcontinue;", ""), (r"\b0;", "1;"), (r"\b1;", "0;"),
    (r"^(\s+)[\w.\->]+\(.*\);$", r"\1;"), (r"^(\s+)[\w.\->\[\]]+ (?:=|\+=|\|=) .*;$", r"\1;"),
    (r"\+\+", "--"), (r"std::min\b", "std::max"), (r"std::max\b", "std::min"),
]


def code_of(line):
    """Returns the line without a trailing comment, or "" if it has no code to change."""
    code = line.split("//")[0].rstrip()
    skipped = ("#", "///", "*", "using", "template", "static_assert", "class", "struct", "enum", "namespace")
    return "" if code.lstrip().startswith(skipped) else code


def changes_of(path):
    """Yields all changes of a file: (path, line number, description, new line)."""
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            code = code_of(line.rstrip("\n"))
            for pattern, replacement in CHANGES:
                for found in re.finditer(pattern, code):
                    new = code[:found.start()] + found.expand(replacement) + code[found.end():]
                    if pattern.endswith(r"if \("):
                        new = negated(code, found.end())
                    if new and new != code and '"' not in found.group():
                        yield path, number, f"{found.group().strip()} -> {replacement.strip()}", new


def negated(code, start):
    """Returns the line with the condition that begins at `start` negated, or "" if it ends on another line."""
    depth = 1
    for at in range(start, len(code)):
        depth += {"(": 1, ")": -1}.get(code[at], 0)
        if depth == 0:
            return code[:start] + "!(" + code[start:at] + ")" + code[at:]
    return ""


def main():
    """Prints the chosen changes."""
    seed, number, paths = sys.argv[1], int(sys.argv[2]), sorted(sys.argv[3:])
    found = [change for path in paths for change in changes_of(path)]
    for path, line, what, new in random.Random(seed).sample(found, min(number, len(found))):
        print(path, line, what, new, sep="\t")


if __name__ == "__main__":
    main()
