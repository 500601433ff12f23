#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""docs/functions.md has every exported function once, and what it says may leave one is in the code."""

import pathlib
import re
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.dont_write_bytecode = True
sys.path += [str(ROOT / "tests/interface"), str(ROOT / "docs/doxygen")]

import names
import plain_header

ADMITTED = {  # what a boundary of each class lets pass
    "Exception": {"Exception", "ErrnoException", "IOException"},
    "ErrnoException": {"ErrnoException"},
    "IOException": {"IOException"},
}


def qualified(name):
    is_global = name.startswith("TraceableException") or "::" not in name
    return name if is_global else f"tarnutil::{name}"


def rows():
    """The rows of the tables: the names of the first cell, and the other cells."""
    found = []
    for line in (ROOT / "docs/functions.md").read_text(encoding="utf-8").splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if line.startswith("| `"):
            found.append(([qualified(name) for name in re.findall(r"`([^`]*)`", cells[0])], *cells[1:]))
    return found


def leaving():
    """What may leave each function, as its cell says it."""
    return {name: cells[0] for listed, *cells in rows() for name in listed}


def classes(cell):
    return set(re.findall(r"`(\w*Exception|std::bad_alloc)`", cell))


def members():
    """The members that the headers declare: name and whether nothing leaves, destructors included."""
    for header in (ROOT / "include/tarnutil").glob("[A-Z]*.h"):
        scope = ""
        for kind, text, *_ in plain_header.parts(header):
            if kind != "declaration":
                continue
            in_class = re.search(r"class .*?([\w:]+)(?: : public [\w:]+)? \{$", text)
            scope = in_class[1] if in_class else scope
            member = re.search(r"(~?\w+)\(", re.sub(r"TARNUTIL_\w+\(.*", "", text))
            if member and not in_class:
                yield qualified(f"{scope}::{member[1]}"), member[1].startswith("~") or " noexcept" in text


def never_throwing():
    """The members whose every overload is declared so."""
    declared = list(members())
    return {name for name, silent in declared if silent} - {name for name, silent in declared if not silent}


def boundaries():
    """The class that each definition in util/ admits; overloads add up."""
    found = {}
    for source in (ROOT / "util").glob("*.cpp"):
        for chunk in re.split(r"\n(?=\S)", source.read_text(encoding="utf-8")):
            name = re.match(r"[^\n;(]*?((?:\b[A-Z]\w*::)+~?\w+)\(", chunk)
            admitted = re.search(r"admitOnly<(\w+)>", chunk)
            if name and admitted:
                found.setdefault(qualified(name[1]), set()).add(admitted[1])
    return found


class FunctionsTest(unittest.TestCase):
    def test_every_exported_function_has_its_row(self):
        self.assertEqual(names.functions() - set(leaving()), set())

    def test_every_row_is_of_an_exported_function(self):
        self.assertEqual(set(leaving()) - names.functions(), set())

    def test_no_function_has_two_rows(self):
        listed = [name for row in rows() for name in row[0]]
        self.assertEqual([name for name in set(listed) if listed.count(name) > 1], [])

    def test_every_cell_says_something(self):
        for listed, *cells in rows():
            self.assertEqual([bool(cell) for cell in cells], [True] * 3, listed)

    def test_nothing_leaves_what_is_declared_so(self):
        declared = never_throwing() & names.functions()
        self.assertGreater(len(declared), 20)
        for name in declared:
            self.assertEqual(classes(leaving()[name]), set(), name)
            self.assertIn("nothing", leaving()[name], name)

    def test_only_what_its_boundary_admits_leaves_a_function(self):
        found = boundaries()
        self.assertGreater(len(found), 35)
        for name, admitted in found.items():
            passing = set().union(*(ADMITTED[kind] for kind in admitted))
            self.assertLessEqual(classes(leaving()[name]), passing, name)

    def test_a_class_of_the_library_leaves_only_through_a_boundary(self):
        behind_another = {"tarnutil::Mutex::LockHolder::LockHolder", "tarnutil::Mutex::LockHolder::unlock",
                          "tarnutil::Pipe::Pipe"}
        for name, cell in leaving().items():
            if classes(cell) - {"std::bad_alloc"} and name not in behind_another:
                self.assertIn(name, boundaries())

    def test_no_exception_leaves_a_plain_function(self):
        for name in (name for name in leaving() if "::" not in name):
            self.assertEqual(leaving()[name], "nothing", name)


if __name__ == "__main__":
    unittest.main()
