# SPDX-License-Identifier: Apache-2.0
"""The names that the library exports, out of the committed list."""

import pathlib
import re

LIST = pathlib.Path(__file__).with_name("exported_names.txt")
OF_THE_COMPILER = re.compile(r"(typeinfo|typeinfo name|vtable) for ")


def plain_name(readable):
    """The name alone: without result, template and function arguments, ABI tag and const."""
    name = OF_THE_COMPILER.sub("", readable.replace("[abi:cxx11]", ""))
    while (shorter := re.sub(r"<[^<>]*>|\([^()]*\)", "", name)) != name:
        name = shorter
    return name.removesuffix(" const").split()[-1]


def readable_names():
    """The list as a demangler writes it."""
    return [line.split("\t")[1] for line in LIST.read_text(encoding="utf-8").splitlines()]


def functions():
    """The plain names of what can be called; and of objects, which the list does not tell apart."""
    return {plain_name(name) for name in readable_names() if not OF_THE_COMPILER.match(name)}
