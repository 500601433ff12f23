# SPDX-License-Identifier: Apache-2.0
"""tarnutil digest, beside sha1sum and md5sum; its bar, on a terminal of the test's own."""

import os
import pty
import socket
import subprocess
import tempfile

from command import COMMAND, CommandTest, main, run


class DigestTest(CommandTest):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)

    def file(self, name, content=b""):
        path = os.path.join(self.directory.name, name)
        with open(path, "wb") as file:
            file.write(content)
        return path

    def test_prints_what_sha1sum_and_md5sum_print(self):
        files = [self.file("empty"), self.file("text", b"abc\n"), self.file("big", b"x" * 100000),
                 self.file("a name\\with\nodd\rbytes", b"1")]
        for tool, arguments in (("sha1sum", ()), ("md5sum", ("--md5",))):
            expected = subprocess.run([tool, *files], capture_output=True, check=True).stdout.decode()
            self.expect(run("digest", *arguments, *files), 0, stdout=expected, stderr="")

    def test_reads_standard_input(self):
        self.expect(run("digest", "-", stdin=b"abc"), 0,
                    stdout="a9993e364706816aba3e25717850c26c9cd0d89d  -\n", stderr="")

    def test_what_cannot_be_read_is_named_and_the_rest_printed(self):
        good, missing = self.file("good", b"abc"), os.path.join(self.directory.name, "missing")
        process = run("digest", missing, good, self.directory.name)
        self.expect(process, 2, stdout=f"a9993e364706816aba3e25717850c26c9cd0d89d  {good}\n", stderr=(
            f'tarnutil: Could not open file "{missing}" for reading: No such file or directory\n'
            f"tarnutil: {self.directory.name} is a directory\n"
            "tarnutil: 2 of 3 files could not be read\n"))

    def test_trace_shows_where_a_file_was_refused(self):
        missing = os.path.join(self.directory.name, "missing")
        process = run("--trace", "digest", missing)
        self.expect(process, 2, stdout="")
        lines = process.stderr.decode().splitlines()
        self.assertEqual(lines[1], "tarnutil::Exception")
        self.assertTrue(any("tarnutil::CryptoUtil::computeSha1Digest" in line for line in lines), lines)
        self.assertEqual(lines[-1], "tarnutil: 1 of 1 files could not be read")

    def test_a_file_on_standard_input_is_read_on_from_where_it_stands(self):
        printed = []
        for at in (0, 3, 6):
            for program in ([COMMAND, "digest", "-"], ["sha1sum", "-"]):
                with open(self.file("read"), "w+b", buffering=0) as file:
                    file.write(b"abcdef")
                    file.seek(at)
                    printed.append(subprocess.run(program, stdin=file, capture_output=True, timeout=60).stdout)
            self.assertEqual(printed[-2], printed[-1], at)
        self.assertEqual(len(set(printed)), 3)

    def test_a_socket_on_standard_input_is_read(self):
        ours, theirs = socket.socketpair()
        with ours, theirs:
            ours.sendall(b"abc")
            ours.shutdown(socket.SHUT_WR)
            process = subprocess.run([COMMAND, "digest", "-"], stdin=theirs, capture_output=True, timeout=60)
        self.expect(process, 0, stdout="a9993e364706816aba3e25717850c26c9cd0d89d  -\n", stderr="")

    def on_a_terminal(self, path):
        """What the command writes to standard error if that is a terminal."""
        primary, secondary = pty.openpty()
        process = subprocess.Popen([COMMAND, "digest", path], stdout=subprocess.PIPE, stderr=secondary)
        os.close(secondary)
        shown = b""
        try:
            while chunk := os.read(primary, 4096):
                shown += chunk
        except OSError:  # the end of a terminal
            pass
        os.close(primary)
        process.stdout.read()
        process.stdout.close()
        self.assertEqual(process.wait(), 0)
        return shown.decode()

    def test_a_large_file_has_a_bar_on_a_terminal(self):
        path = self.file("large")
        os.truncate(path, 100 << 20)
        shown = self.on_a_terminal(path)
        self.assertIn(" % " + path, shown)
        self.assertTrue(shown.endswith("\r\033[K"), shown[-20:])
        self.assertEqual(run("digest", path).stderr, b"")

    def test_a_small_file_has_none(self):
        self.assertEqual(self.on_a_terminal(self.file("small", b"abc")), "")

    def test_a_file_that_does_not_begin_is_refused(self):
        self.expect(run("digest", "/proc/self/mem"), 2, stdout="",
                    stderr="tarnutil: cannot read /proc/self/mem\ntarnutil: 1 of 1 files could not be read\n")

    def test_no_file_is_a_usage_error(self):
        self.expect(run("digest"), 2, stdout="")

    def test_help_shows_an_example(self):
        self.assertIn(b"Example:\n  $ tarnutil digest", run("digest", "--help").stdout)


if __name__ == "__main__":
    main()
