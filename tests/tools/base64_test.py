# SPDX-License-Identifier: Apache-2.0
"""tarnutil base64, beside Python's."""

import base64
import tempfile

from command import CommandTest, main, run


class Base64Test(CommandTest):
    def test_encodes_and_decodes(self):
        for data in (b"", b"a", b"\0\xff\n" * 5, bytes(range(256)) * 100):
            text = base64.b64encode(data).decode()
            self.expect(run("base64", stdin=data), 0, stdout=text + "\n", stderr="")
            process = run("base64", "-d", stdin=text.encode() + b"\n")
            self.assertEqual((process.returncode, process.stdout, process.stderr), (0, data, b""))

    def test_reads_a_file(self):
        with tempfile.NamedTemporaryFile() as file:
            file.write(b"abc")
            file.flush()
            self.expect(run("base64", file.name), 0, stdout="YWJj\n", stderr="")

    def test_refuses_what_the_decoder_would_drop(self):
        for text in (b"YWJj\nYWJj", b"YWJ", b"YWJj!", b"Y W J j", b"YWJj====", b"-_-_"):
            self.expect(run("base64", "-d", stdin=text), 1, stdout="",
                        stderr="tarnutil: The text is not one line of base64.\n")

    def test_unreadable_input_is_exit_code_2(self):
        self.expect(run("base64", "/no/such"), 2, stdout="", stderr="tarnutil: cannot read /no/such\n")
        with tempfile.TemporaryDirectory() as directory:
            self.expect(run("base64", directory), 2, stdout="", stderr=f"tarnutil: cannot read {directory}\n")

    def test_help_shows_an_example(self):
        self.assertIn(b"Example:\n  $ tarnutil base64", run("base64", "--help").stdout)


if __name__ == "__main__":
    main()
