#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The manual pages: section 3 names what the library exports, and every page formats cleanly."""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True

from names import plain_name, readable_names

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGES = sorted(path for path in (ROOT / "docs/man").iterdir() if path.suffix in (".1", ".3", ".7"))
SECTION_3 = [page for page in PAGES if page.suffix == ".3"]


def exported_names():
    """Functions, objects and classes; a constructor or destructor counts as its class, and the class
    of a member is a name too."""
    names = set()
    for name in readable_names():
        scope, _, last = plain_name(name).rpartition("::")
        if scope not in ("", "tarnutil"):
            names.add(scope)
        if last.lstrip("~") != scope.split("::")[-1]:
            names.add(f"{scope}::{last}" if scope else last)
    return names


def manual_names():
    """What stands under NAME in the pages of section 3, in front of the dash."""
    names = []
    for page in SECTION_3:
        listed = re.search(r"^\.SH NAME\n(.*?) \\- ", page.read_text(), re.DOTALL | re.MULTILINE)[1]
        names += [name.strip().replace("\\-", "-") for name in listed.split(",")]
    return names


def complaints(*command):
    run = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    return (run.returncode, run.stderr)


class ManualTest(unittest.TestCase):
    def test_every_exported_name_has_a_page(self):
        self.assertEqual(exported_names() - set(manual_names()), set())

    def test_every_name_with_a_page_is_exported(self):
        self.assertEqual(set(manual_names()) - exported_names(), set())

    def test_no_name_is_on_two_pages(self):
        names = manual_names()
        self.assertEqual([name for name in set(names) if names.count(name) > 1], [])

    def test_section_3_is_what_its_generator_makes_of_the_headers(self):
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run([ROOT / "docs/man/section3", folder], check=True)
            for page in SECTION_3:
                made = pathlib.Path(folder, page.name).read_text(encoding="utf-8")
                self.assertEqual(page.read_text(encoding="utf-8"), made, "./dev docs makes the pages anew")

    def test_every_page_formats_without_a_warning(self):
        for page in PAGES:
            with self.subTest(page.name):
                self.assertEqual(complaints("groff", "-man", "-ww", "-z", "-Tutf8", page), (0, ""))
                self.assertEqual(complaints("man", "--warnings", "-E", "UTF-8", "-l", page), (0, ""))

    def test_every_subcommand_is_in_the_page_of_the_command(self):
        page = (ROOT / "docs/man/tarnutil.1").read_text()
        listed = re.search(r"^\.SH SUBCOMMANDS\n(.*?)^\.SH", page, re.DOTALL | re.MULTILINE)[1]
        declared = re.findall(r"void add(\w+)Command\(", (ROOT / "tools/tarnutil/commands.h").read_text())
        self.assertEqual(re.findall(r"^\.B (\w+)$", listed, re.MULTILINE), sorted(map(str.lower, declared)))


if __name__ == "__main__":
    unittest.main()
