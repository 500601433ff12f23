#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Every source, script and CMake file names its licence: in its first line, or in the second behind
what has to be the first. What is asked are the files that git tracks, or all where git does not know
the folder."""

import os
import pathlib
import subprocess
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
LICENCE = "SPDX-License-Identifier: Apache-2.0"
SUFFIXES = {".h", ".c", ".cpp", ".py", ".sh", ".bash", ".cmake", ".map", ".supp"}
NAMES = {"CMakeLists.txt", "Doxyfile", "_tarnutil"}
TEMPLATES = (".cmake.in", ".pc.in")
FIRST = ("#!", "#compdef ")  # what has to stand in front of all


def tracked():
    git = subprocess.run(["git", "-C", ROOT, "ls-files", "-z"], capture_output=True, text=True)
    if git.returncode == 0:
        return [ROOT / name for name in git.stdout.split("\0") if name]
    return [pathlib.Path(folder, name) for folder, folders, names in os.walk(ROOT) for name in names
            if not pathlib.Path(folder).is_relative_to(ROOT / "build")]


def head(path):
    with open(path, "rb") as file:
        return [file.readline().decode(errors="replace") for _ in range(2)]


def needs_licence(path):
    return (path.suffix in SUFFIXES or path.name in NAMES or path.name.endswith(TEMPLATES)
            or head(path)[0].startswith("#!"))


def names_licence(path):
    first, second = head(path)
    return LICENCE in (second if first.startswith(FIRST) else first)


class LicenceTest(unittest.TestCase):
    def test_every_source_names_its_licence(self):
        sources = [path for path in tracked() if path.is_file() and needs_licence(path)]
        self.assertGreater(len(sources), 200)
        self.assertEqual([str(path.relative_to(ROOT)) for path in sources if not names_licence(path)], [])

    def test_the_licence_is_the_one_that_is_enclosed(self):
        text = (ROOT / "LICENSE").read_text(encoding="utf-8")
        self.assertIn("Apache License\n", text)
        self.assertIn("Version 2.0, January 2004\n", text)


unittest.main()
