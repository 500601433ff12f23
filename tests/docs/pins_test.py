#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Every test that the documents or the sources name, above all by "Pinned by", exists."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
TEXTS = {".c", ".cpp", ".h", ".md", ".toml"}
PLACES = ["README.md", "CONTRIBUTING.md", "SECURITY.md", "CHANGELOG.md", "docs", "include", "util", "tools"]
DEFINITION = re.compile(r"^(?:TYPED_)?TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)", re.MULTILINE)
NAME = re.compile(r"\b([A-Z]\w+Test)\b(?:\.(\w+))?")  # of a test, or of a suite for all of its tests
PIN = re.compile(r"Pinned by\b")


def texts():
    """What may name a test, without line breaks and comment signs."""
    files = [file for place in PLACES for file in [ROOT / place, *(ROOT / place).rglob("*")]]
    return {str(file.relative_to(ROOT)): re.sub(r"\s*\n[\s/*]*", " ", file.read_text(encoding="utf-8"))
            for file in files if file.suffix in TEXTS and file.is_file()}


def defined():
    """The tests that there are, as pairs of a suite and a name."""
    return {pair for file in (ROOT / "tests").rglob("*.cpp")
            for pair in DEFINITION.findall(file.read_text(encoding="utf-8"))}


def problems(text, tests):
    """What a text names that does not exist, and its pins that name nothing."""
    known = tests | {(suite, "") for suite, _ in tests}
    missing = [".".join(pair) for pair in NAME.findall(text) if pair not in known]
    followers = (text[pin.end():].removeprefix(" the").lstrip(" `") for pin in PIN.finditer(text))
    return missing + ["Pinned by " + follower[:40] for follower in followers if not NAME.match(follower)]


class PinsTest(unittest.TestCase):
    def setUp(self):
        self.texts, self.tests = texts(), defined()

    def test_every_test_that_is_named_exists(self):
        found = {path: missing for path, text in self.texts.items() if (missing := problems(text, self.tests))}
        self.assertEqual(found, {})

    def test_pins_are_found_in_documents_and_sources(self):
        self.assertGreater(len(PIN.findall(self.texts["docs/behaviours.md"])), 80)
        self.assertGreater(len(PIN.findall(self.texts["util/eb.cpp"])), 5)

    def test_a_test_that_is_gone_is_noticed(self):
        named = {pair for text in self.texts.values() for pair in NAME.findall(text) if pair[1]}
        self.assertGreater(len(named), 100)
        for pair in named:
            rest = self.tests - {pair}
            self.assertTrue(any(problems(text, rest) for text in self.texts.values()), pair)

    def test_a_pin_of_nothing_is_noticed(self):
        for text in ["Pinned by hand.", "Pinned by", "Pinned by the `GoneTest` cases.", "Pinned by `GoneTest.IsGone`."]:
            self.assertEqual(len(problems(text, self.tests)), 1, text)


if __name__ == "__main__":
    unittest.main()
