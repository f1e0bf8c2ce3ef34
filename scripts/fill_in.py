#!/usr/bin/env python3
"""Replaces regions of files by what a program makes. With --check, only compares them.

    MAKER | fill_in.py [--part] [--check] FILE...

A region of a file lies between a line with "generated: NAME" and one with "end generated", which are
in comments of the file's language. Standard input holds the new regions between the same lines.

Each region of the files must be in the input, unless --part is given. Each region of the input must
be in a file. No region may be empty or lack its end. If one of these doesn't hold, nothing is
written and the status is 1. With --check nothing is written either; the status is 1 and the
differences are printed if a file holds something else.
"""
import difflib
import pathlib
import re
import sys

MARK = re.compile(r"\bgenerated: [\w-]+")
REGION = re.compile(r"^(.*\bgenerated: ([\w-]+).*\n)((?:.*\n)*?)(.*\bend generated\b.*\n)", re.M)


def fail(what):
    sys.exit(f"fill_in: {what}")


def regions(text, where):
    found = list(REGION.finditer(text))
    if not found or len(found) != len(MARK.findall(text)):
        fail(f"{where}: no region, or one without an end")
    return {match[2]: match[3] for match in found}


def main(arguments):
    part, check = (flag in arguments[:2] for flag in ("--part", "--check"))
    paths = arguments[part + check:]
    if not paths:
        sys.exit(__doc__)
    made = regions(sys.stdin.read(), "standard input")
    unused = set(made)
    filled = {}
    for path in map(pathlib.Path, paths):
        text = path.read_text(encoding="utf-8")
        for name in regions(text, path):
            if part and name not in made:
                made[name] = regions(text, path)[name]
            if not made.get(name):
                fail(f"{path}: nothing was made for {name}")
            unused.discard(name)
        filled[path] = text, REGION.sub(lambda match: match[1] + made[match[2]] + match[4], text)
    if unused:
        fail(f"no file has a region {', '.join(sorted(unused))}")
    for path, (old, new) in filled.items():
        if check:
            sys.stderr.writelines(difflib.unified_diff(
                old.splitlines(True), new.splitlines(True), str(path), "made now"))
        elif old != new:
            path.write_text(new, encoding="utf-8")
    if check and any(old != new for old, new in filled.values()):
        fail("a file says something else than was made now")


main(sys.argv[1:])
