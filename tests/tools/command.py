# SPDX-License-Identifier: Apache-2.0
"""What the tests of the tarnutil command share: running it, and unittest's main."""

import subprocess
import sys
import unittest

COMMAND = sys.argv.pop(1) if len(sys.argv) > 1 else "tarnutil"


def run(*arguments, stdin=b"", env=None):
    """Runs the command and returns its completed process, with output as bytes. It has no terminal: what it
    asks of one would show on its standard error."""
    return subprocess.run([COMMAND, *arguments], input=stdin, capture_output=True, env=env, timeout=60,
                          start_new_session=True)


class CommandTest(unittest.TestCase):
    def expect(self, process, status, stdout=None, stderr=None):
        """Checks the exit status and, where given, the whole of the two outputs."""
        self.assertEqual(process.returncode, status, process.stderr.decode())
        if stdout is not None:
            self.assertEqual(process.stdout.decode(), stdout)
        if stderr is not None:
            self.assertEqual(process.stderr.decode(), stderr)


main = unittest.main
