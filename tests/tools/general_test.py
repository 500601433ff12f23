# SPDX-License-Identifier: Apache-2.0
"""The tarnutil command as a whole: help, version and usage errors."""

from command import CommandTest, main, run


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

    def test_an_unknown_option_is_a_usage_error(self):
        self.expect(run("--nonsense"), 2, stdout="")


if __name__ == "__main__":
    main()
