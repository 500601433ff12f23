#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes docs/messages.md: every message of the library, with what messages.toml says of it.

The texts are those of the sources: a message in util/ that messages.toml does not know, or a text there
that no source makes, is an error.
"""

import pathlib
import re
import sys
import tomllib

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs/messages.md"
PLACE = re.compile(r"\{([A-Z]+)\}")
LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
# What is no message though it stands in quotes: comments, includes, and what only the compiler reads.
SILENT = re.compile(r"//.*|^\s*#.*|static_assert\([^;]*;", re.MULTILINE)
LIKE_A_MESSAGE = re.compile(r"\w \w")
ERRNO = ": errno {NUMBER}: {TEXT}"  # what ErrnoException::createMsg adds
CLASSES = {"text": "text of a result", "error queue": "entry of OpenSSL's error queue"}

ABOUT = """\
# Messages

Every message that the library can give, word for word: the texts are promises, oddities included, and a
program may compare them. What stands in capitals differs from case to case; TEXT is the system's text for
an error number, NUMBER the number itself.

The class is one of the namespace `tarnutil`: catch `Exception` for all of them. Where it says "or
`abort()`", an object that was built with `abort` true calls that instead and writes nothing anywhere.
What may leave which function: [functions](functions.md).

`./dev docs` makes this page from the sources and from `docs/tables/messages.toml`. The tests compare the
two, and fail unless each message was given by the library while they ran.
"""


def entries():
    """The rows of messages.toml, by module."""
    with open(pathlib.Path(__file__).with_name("messages.toml"), "rb") as file:
        return tomllib.load(file)


def text_of(entry):
    """The whole message, with its places in braces."""
    return entry["text"] + (ERRNO if entry["class"] == "ErrnoException" else "")


def literals(source):
    """The texts between quotes, adjacent ones joined, cut where a format puts something in."""
    code = re.sub(r'"\s*\n\s*"', "", SILENT.sub("", source))
    found = [re.sub(r"\\(.)", r"\1", literal) for literal in LITERAL.findall(code)]
    return {piece for literal in found for piece in re.split(r"%[a-z]", literal) if piece}


def queued(source):
    """The entries of the error queue, whose lines are an enumeration."""
    file = re.search(r'ERR_put_error\([^"]*"([^"]+)"', source)
    lines = re.search(r"enum ChainFailure \{(.*?)\}", source, re.DOTALL)
    return {f"{file[1]}:{line}" for line in re.findall(r"= (\d+)", lines[1])} if file and lines else set()


def collected():
    """What the sources can put into messages, by module."""
    sources = {path: path.read_text(encoding="utf-8") for path in sorted((ROOT / "util").iterdir())}
    return {path.stem: literals(text) | queued(text) for path, text in sources.items() if path.suffix in (".h", ".cpp")}


def compositions(text, pieces):
    """Every way to put a text together of pieces."""
    if not text:
        return [[]]
    return [[piece, *rest] for piece in pieces if text.startswith(piece)
            for rest in compositions(text.removeprefix(piece), pieces)]


def problems(rows, code):
    """What the rows and the code do not agree on."""
    found = [f"{module}: there is no such source" for module in rows if module not in code]
    for module, pieces in code.items():
        used = set()
        for entry in rows.get(module, []):
            for part in filter(None, PLACE.split(entry["text"])[::2]):
                ways = compositions(part, pieces)
                used |= {piece for way in ways for piece in way}
                if not ways:
                    found.append(f"{module}: no source makes {entry['text']!r}: {part!r} is not there")
        wanted = {piece for piece in pieces if LIKE_A_MESSAGE.search(piece) or re.fullmatch(r"\S+\.cpp:\d+", piece)}
        found += [f"{module}: {piece!r} is not in messages.toml" for piece in sorted(wanted - used)]
    return found


def row(entry, aborts):
    name = entry["class"]
    shown = CLASSES.get(name, f"`{name}`" + (", or `abort()`" if aborts else ""))
    text = PLACE.sub(r"\1", text_of(entry))
    cells = f"`{text}`", shown, entry["cause"], entry["recipe"]
    return "| " + " | ".join(cell.replace("|", "\\|") for cell in cells) + " |"


def page(rows):
    out = [ABOUT]
    for module, listed in rows.items():
        source = (ROOT / f"util/{module}.cpp").read_text(encoding="utf-8")
        aborts = '#include "handle_error.h"' in source
        out += [f"## {module}\n", "| Text | Class | Cause | Recipe |", "| --- | --- | --- | --- |",
                *(row(entry, aborts) for entry in listed), ""]
    return "\n".join(out).rstrip("\n") + "\n"


def main():
    rows = entries()
    found = problems(rows, collected())
    if found:
        sys.exit("\n".join(found))
    PAGE.write_text(page(rows), encoding="utf-8")


if __name__ == "__main__":
    main()
