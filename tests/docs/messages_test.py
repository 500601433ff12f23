#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""docs/messages.md is what its generator makes of the sources, and the generator misses no message."""

import pathlib
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "docs/tables"))

import messages
import provoked


class MessagesTest(unittest.TestCase):
    def setUp(self):
        self.rows, self.code = messages.entries(), messages.collected()

    def test_page_is_what_the_generator_makes(self):
        self.assertEqual(messages.PAGE.read_text(encoding="utf-8"), messages.page(self.rows))

    def test_rows_and_sources_agree(self):
        self.assertEqual(messages.problems(self.rows, self.code), [])

    def test_a_message_without_its_row_is_noticed(self):
        for module, listed in self.rows.items():
            for index, entry in enumerate(listed):
                with self.subTest(entry["text"]):
                    rest = {**self.rows, module: listed[:index] + listed[index + 1 :]}
                    self.assertNotEqual(messages.problems(rest, self.code), [])

    def test_a_row_without_its_message_is_noticed(self):
        for module, listed in self.rows.items():
            more = {**self.rows, module: [*listed, {"text": "Could not be {TEXT}", "class": "Exception"}]}
            self.assertEqual(len(messages.problems(more, self.code)), 1, module)

    def test_no_row_comes_twice_or_is_empty(self):
        for module, listed in self.rows.items():
            texts = [entry["text"] for entry in listed]
            self.assertEqual(len(set(texts)), len(texts), module)
            for entry in listed:
                self.assertEqual(list(entry), ["text", "class", "cause", "recipe"])
                self.assertTrue(all(entry.values()), entry)


class ProvokedTest(unittest.TestCase):
    """What judges the records of the test programs."""

    ALL = [(kind, messages.PLACE.sub("5", text.replace("{TEXT}", "Input/output error")))
           for kind, text in provoked.ROWS]

    def test_records_of_every_message_are_enough(self):
        self.assertEqual(provoked.failures(self.ALL), [])

    def test_a_message_that_was_never_provoked_is_named(self):
        for kind, text in self.ALL:
            found = provoked.failures([line for line in self.ALL if line != (kind, text)])
            self.assertEqual(len(found), 1, text)
            self.assertTrue(found[0].startswith(f"never provoked: {kind}: {text[:10]}"), found)

    def test_a_message_of_another_class_is_another_message(self):
        for kind, text in self.ALL:
            found = provoked.failures([("Other", text) if line == (kind, text) else line for line in self.ALL])
            self.assertEqual(len(found), 2, text)

    def test_a_message_beside_the_table_is_named(self):
        found = provoked.failures([*self.ALL, ("Exception", "Could not hold mutex: 5")])
        self.assertEqual(found, ["not in the table: Exception: Could not hold mutex: 5"])


if __name__ == "__main__":
    unittest.main()
