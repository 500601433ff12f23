# SPDX-License-Identifier: Apache-2.0
"""tarnutil escape: for a shell and for regular expressions."""

import subprocess

from command import CommandTest, main, run


class EscapeTest(CommandTest):
    def test_escapes_an_argument_for_a_shell(self):
        expected = "it\\'s\\ a\\ \\$HOME\n"
        self.expect(run("escape", "--shell", "it's a $HOME"), 0, stdout=expected, stderr="")

    def test_escapes_an_argument_for_a_regular_expression(self):
        self.expect(run("escape", "--regex", "a.b]"), 0, stdout="a\\.b]\n", stderr="")

    def test_escapes_standard_input_byte_by_byte_and_adds_nothing(self):
        process = run("escape", "--shell", stdin=b"a b\0\xff\t\n")
        self.assertEqual((process.returncode, process.stdout), (0, b"a\\ b\0\xff\t\n"))

    def test_an_empty_text_is_a_text(self):
        self.expect(run("escape", "--regex", "", stdin=b"never read"), 0, stdout="\n")

    def test_a_shell_reads_the_text_back(self):
        text = "a'b\"c $(echo no) `no` ;|&<>*?[x]{y}~!#"
        word = run("escape", "--shell", text).stdout.decode().rstrip("\n")
        echoed = subprocess.run(["sh", "-c", "printf %s " + word], capture_output=True, check=True)
        self.assertEqual(echoed.stdout.decode(), text)

    def test_one_dialect_has_to_be_chosen(self):
        self.expect(run("escape", "x"), 2, stdout="")
        self.expect(run("escape", "--shell", "--regex", "x"), 2, stdout="")

    def test_help_shows_an_example(self):
        self.assertIn(b"Example", run("escape", "--help").stdout)


if __name__ == "__main__":
    main()
