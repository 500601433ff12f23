# SPDX-License-Identifier: Apache-2.0
"""tarnutil bitmap: the memory of a bitmap, and the sizes that are none."""

import json
import pathlib
import re

from command import CommandTest, main, run

SMALLEST = """\
positions          134217728
tops               256
blocks             516
bytes in headers   1578068
bytes in words     16793632
bytes              18371700 (17.52 MiB)
bits per position  1.095
"""


# A row of the table of memory in docs/bitmap.md: positions, tops, blocks, bytes, the same readable.
ROW = re.compile(r"^\| (2\^\d+) \| ([\d,]+) \| ([\d,]+) \| ([\d,]+) \| ([\d.]+ \w+) \|$", re.MULTILINE)
DOCUMENT = pathlib.Path(__file__).resolve().parents[2] / "docs/bitmap.md"


class BitmapSizeTest(CommandTest):
    def test_the_table_of_the_document_is_what_it_prints(self):
        rows = ROW.findall(DOCUMENT.read_text())
        self.assertEqual([row[0] for row in rows], [f"2^{exponent}" for exponent in range(27, 51)])
        for size, *counts, readable in rows:
            with self.subTest(size=size):
                told = json.loads(run("bitmap", "size", "--json", size).stdout)
                tops, blocks, size_in_bytes = (int(count.replace(",", "")) for count in counts)
                self.assertEqual((told["tops"], told["blocks"], told["bytes"]), (tops, blocks, size_in_bytes))
                self.assertIn(f" {size_in_bytes} ({readable})\n", run("bitmap", "size", size).stdout.decode())

    def test_prints_what_the_smallest_range_takes(self):
        self.expect(run("bitmap", "size", "2^27"), 0, stdout=SMALLEST, stderr="")

    def test_a_size_may_be_written_out(self):
        self.expect(run("bitmap", "size", "134217728"), 0, stdout=SMALLEST, stderr="")

    def test_json_holds_the_same(self):
        process = run("bitmap", "size", "--json", "2^27")
        self.expect(process, 0, stderr="")
        answer = json.loads(process.stdout)
        self.assertAlmostEqual(answer.pop("bits_per_position"), 1.09504, places=4)
        self.assertEqual(
            answer,
            {
                "positions": 1 << 27,
                "tops": 256,
                "blocks": 516,
                "header_bytes": 1578068,
                "word_bytes": 16793632,
                "bytes": 18371700,
            },
        )

    def test_the_largest_range_is_answered_without_taking_it(self):
        answer = json.loads(run("bitmap", "size", "--json", "2^50").stdout)
        self.assertEqual(answer["positions"], 1 << 50)
        self.assertEqual(answer["tops"], 1 << 31)
        self.assertEqual(answer["blocks"], 4 + (2 << 31))

    def test_refuses_sizes_that_eb_init_refuses(self):
        for size in ["0", "1", "2^26", "2^51", "2^64", "402653184", "134217729"]:
            expected = (
                "tarnutil: a bitmap has a power of two of positions, from 2^27 to 2^50, not " + size + "\n"
            )
            with self.subTest(size=size):
                self.expect(run("bitmap", "size", size), 1, stdout="", stderr=expected)

    def test_what_is_no_number_is_unusable(self):
        for text in ["", "many", "2^", "2^x", "-1", "1.5", "0x8000000", "9" * 19]:
            with self.subTest(text=text):
                process = run("bitmap", "size", "--", text)
                self.expect(process, 2, stdout="")
                self.assertEqual(
                    process.stderr.decode(), 'tarnutil: "%s" is no number of positions\n' % text
                )

    def test_no_size_is_a_usage_error(self):
        self.expect(run("bitmap", "size"), 2, stdout="")
        self.expect(run("bitmap"), 2, stdout="")

    def test_help_shows_an_example(self):
        for arguments in [("bitmap",), ("bitmap", "size")]:
            process = run(*arguments, "--help")
            self.expect(process, 0, stderr="")
            self.assertIn(b"Example", process.stdout)


if __name__ == "__main__":
    main()
