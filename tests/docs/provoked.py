#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Each message of docs/messages.md was given by the library while the tests ran, and no other one.

  provoked.py RECORD...     the records of the test programs; see tests/support/record.h
"""

import os
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "docs/tables"))

import messages

NULL_TEXT = "strerror_r returned NULL"
SYSTEM_TEXTS = {os.strerror(number) for number in range(200)} | {NULL_TEXT}
PLACES = {"TEXT": r"Unknown error -?\d+|" + "|".join(map(re.escape, sorted(SYSTEM_TEXTS))), "NUMBER": r"-?\d+"}


def pattern(text):
    """What a message looks like, as an expression."""
    parts = messages.PLACE.split(text)
    parts[::2] = map(re.escape, parts[::2])
    parts[1::2] = (f"({PLACES.get(place, '.*')})" for place in parts[1::2])
    return re.compile("".join(parts))


def fixed_size(text):
    return len(messages.PLACE.sub("", text))


# The most particular first: "thread: no object" is none of "thread: {TEXT}".
ROWS = sorted(((entry["class"], messages.text_of(entry)) for listed in messages.entries().values() for entry in listed),
              key=lambda row: -fixed_size(row[1]))
PATTERNS = {row: pattern(row[1]) for row in ROWS}


def row_of(kind, text):
    return next((row for row in ROWS if row[0] == kind and PATTERNS[row].fullmatch(text)), None)


def failures(lines):
    """What the recorded lines, pairs of a class and a text, lack or have too much."""
    rows = {line: row_of(*line) for line in lines}
    return [f"never provoked: {kind}: {text}" for kind, text in ROWS if (kind, text) not in rows.values()] + \
        [f"not in the table: {kind}: {text}" for (kind, text), row in sorted(rows.items()) if row is None]


def recorded(paths):
    """The lines of all records, each once. The records go: they are of this run alone."""
    lines = set()
    for path in paths:
        with open(path, encoding="utf-8", errors="backslashreplace") as file:
            lines |= {tuple(line.rstrip("\n").split("\t", 1)) for line in file}
        os.remove(path)
    return lines


def main():
    lines = recorded(sys.argv[1:])
    found = failures(lines)
    if found:
        sys.exit("\n".join(found))
    print(f"{len(ROWS)} messages, each provoked; {len(lines)} texts seen")


if __name__ == "__main__":
    main()
