# SPDX-License-Identifier: Apache-2.0
"""The tarnutil command as a whole: help, version and usage errors."""

import os
import subprocess

from command import COMMAND, CommandTest, main, run


class GeneralTest(CommandTest):
    def test_prints_its_version(self):
        self.expect(run("--version"), 0, stdout="tarnutil 1.0.0\n", stderr="")

    def test_help_shows_an_example(self):
        process = run("--help")
        self.expect(process, 0, stderr="")
        self.assertIn(b"Example", process.stdout)

    def test_no_subcommand_is_a_usage_error(self):
        process = run()
        self.expect(process, 2, stdout="")
        self.assertIn(b"subcommand", process.stderr)

    def test_output_that_cannot_be_written_is_exit_code_2(self):
        for arguments in (["base64"], ["digest", "/etc/passwd"], ["escape", "--shell", "x"], ["--help"], ["--version"],
                          ["cert", "--help"], ["ciphers", "--cross-reference"], ["bitmap", "size", "134217728"],
                          ["run", "--", "/bin/echo", "x"]):
            with self.subTest(arguments), open("/dev/full", "wb") as full:
                process = subprocess.run([COMMAND, *arguments], input=b"abc", stdout=full,
                                         stderr=subprocess.PIPE, timeout=60)
                self.assertEqual((process.returncode, process.stderr),
                                 (2, b"tarnutil: cannot write the output\n"))

    def test_standard_input_that_cannot_be_read_is_exit_code_2(self):
        for arguments in (["base64"], ["escape", "--regex"], ["run", "--", "/bin/cat"]):
            directory = os.open("/", os.O_RDONLY)
            self.addCleanup(os.close, directory)
            with self.subTest(arguments):
                process = subprocess.run([COMMAND, *arguments], stdin=directory, capture_output=True, timeout=60)
                self.expect(process, 2, stdout="", stderr="tarnutil: cannot read standard input\n")

    def test_an_unknown_option_is_a_usage_error(self):
        self.expect(run("--nonsense"), 2, stdout="")


if __name__ == "__main__":
    main()
