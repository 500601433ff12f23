# SPDX-License-Identifier: Apache-2.0
"""tarnutil run: a program as a child, with its streams passed through and a deadline."""

import os
import resource
import select
import signal
import subprocess
import tempfile
import unittest

from command import COMMAND, CommandTest, main, run


def run_prepared(prepare, *arguments):
    """As run, with what `prepare` does to the process before it becomes the command."""
    return subprocess.run([COMMAND, "run", *arguments], stdin=subprocess.DEVNULL, capture_output=True,
                          preexec_fn=prepare, timeout=60)


def run_redirected(redirection, *arguments):
    """As run, with a redirection of the shell, such as one that closes a stream."""
    return subprocess.run(["/bin/sh", "-c", 'exec "$0" run "$@" ' + redirection, COMMAND, *arguments],
                          stdin=subprocess.DEVNULL, capture_output=True, timeout=60)


class RunTest(CommandTest):
    def unread(self, *arguments):
        """Starts the command with a pipe for its output that nobody reads yet."""
        return subprocess.Popen([COMMAND, "run", *arguments], stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def expect_end(self, number):
        """Waits until the process of this number has ended, whether or not its parent knows."""
        try:
            watch = os.pidfd_open(number)
        except ProcessLookupError:
            return
        self.addCleanup(os.close, watch)
        self.assertTrue(select.select([watch], [], [], 20)[0], "the program goes on")

    def test_passes_the_streams_through(self):
        text = bytes(range(256)) * 16384
        process = run("run", "--", "/bin/sh", "-c", "exec tee /dev/stderr", stdin=text)
        self.assertEqual(process.returncode, 0)
        self.assertEqual(process.stdout, text)
        self.assertEqual(process.stderr, text + b"tarnutil: exit status 0\n")

    def test_a_child_that_does_not_read_is_no_failure(self):
        self.expect(run("run", "--", "/bin/true", stdin=b"x" * 1000000), 0,
                    stdout="", stderr="tarnutil: exit status 0\n")

    def test_arguments_that_look_like_options_go_to_the_program(self):
        process = run("run", "--", "/bin/echo", "--timeout", "--", "run")
        self.expect(process, 0, stdout="--timeout -- run\n")

    def test_says_how_the_program_ended(self):
        rows = [
            # script          exit code  says
            ("exit 0",        0,         "exit status 0"),
            ("exit 3",        1,         "exit status 3"),
            ("exit 254",      1,         "exit status 254"),
            ("kill -KILL $$", 1,         "ended by a signal"),
            ("kill -PIPE $$", 1,         "ended by a signal"),
        ]
        for script, code, says in rows:
            with self.subTest(script):
                self.expect(run("run", "--", "/bin/sh", "-c", script), code,
                            stdout="", stderr="tarnutil: " + says + "\n")

    def test_says_why_a_program_could_not_be_executed(self):
        with tempfile.NamedTemporaryFile() as text:
            rows = [
                # program              says
                ("/no/such/program",   "No such file or directory (exit status 254)"),
                (text.name,            "Permission denied (exit status 243)"),
                (text.name + "/below", "Not a directory (exit status 236)"),
            ]
            for program, says in rows:
                with self.subTest(program):
                    self.expect(run("run", "--", program), 2,
                                stdout="", stderr="tarnutil: " + program + ": " + says + "\n")

    @unittest.skipIf("TARNUTIL_SANITIZED" in os.environ, "the sanitizer needs descriptors of its own")
    def test_a_program_that_cannot_get_its_streams_is_not_started(self):
        # The command has descriptors 0 to 12, and the child needs three more.
        for limit in (13, 14, 15):
            with self.subTest(limit):
                process = run_prepared(lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit)),
                                       "--", "/bin/echo", "hi")
                self.expect(process, 2, stdout="",
                            stderr="tarnutil: /bin/echo: Too many open files (exit status 232)\n")

    def test_standard_input_that_is_closed_is_empty(self):
        self.expect(run_redirected("<&-", "--", "/bin/cat"), 0, stdout="", stderr="tarnutil: exit status 0\n")

    def test_a_closed_output_takes_no_descriptor_of_the_command(self):
        for redirection in (">&-", "2>&-", ">&- 2>&-", "<&- >&- 2>&-"):
            with self.subTest(redirection):
                process = run_redirected(redirection, "--", "/bin/true")
                says = "" if "2>&-" in redirection else "tarnutil: exit status 0\n"
                self.expect(process, 0, stdout="", stderr=says)

    def test_what_cannot_be_written_is_no_success(self):
        rows = [
            # script           redirection    says
            ("echo x",         ">&-",         "tarnutil: cannot write the output\n"),
            ("echo x",         ">/dev/full",  "tarnutil: cannot write the output\n"),
            ("echo x; exit 3", ">/dev/full",  "tarnutil: cannot write the output\n"),
            ("echo x >&2",     "2>&-",        ""),
            ("echo x >&2",     "2>/dev/full", ""),
        ]
        for script, redirection, says in rows:
            with self.subTest(script + " " + redirection):
                process = run_redirected(redirection, "--", "/bin/sh", "-c", script)
                self.expect(process, 2, stdout="", stderr=says)

    def test_a_reader_that_goes_away_is_no_failure(self):
        read_end, write_end = os.pipe()
        os.close(read_end)
        self.addCleanup(os.close, write_end)
        process = subprocess.run([COMMAND, "run", "--", "/bin/echo", "x"], stdin=subprocess.DEVNULL,
                                 stdout=write_end, stderr=subprocess.PIPE, timeout=60)
        self.expect(process, 0, stderr="tarnutil: exit status 0\n")

    def test_what_was_written_last_waits_for_a_reader_that_is_late(self):
        # More than one pipe holds, and less than two.
        with self.unread("--", "/bin/sh", "-c", "head -c 100000 /dev/zero; echo $$ >&2") as process:
            self.expect_end(int(process.stderr.readline()))
            output, errors = process.communicate(timeout=60)
        self.assertEqual((process.returncode, len(output), errors), (0, 100000, b"tarnutil: exit status 0\n"))

    def test_a_program_has_the_signal_mask_that_the_command_was_given(self):
        process = run_prepared(lambda: signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGCHLD, signal.SIGUSR1]),
                               "--", "/bin/grep", "SigBlk", "/proc/self/status")
        self.assertEqual(process.returncode, 0)
        mask = int(process.stdout.split()[1], 16)
        self.assertEqual(mask, sum(1 << (number - 1) for number in (signal.SIGCHLD, signal.SIGUSR1)))

    def test_a_deadline_ends_whatever_the_program_does(self):
        rows = [
            # seconds  script                                         output      says
            ("0.2",    "echo begun; exec sleep 1000",                 "begun\n",  "ended by a signal"),
            ("0.2",    "echo begun; kill -STOP $$",                   "begun\n",  "ended by a signal"),
            ("0.2",    "exec >&- 2>&-; exec sleep 1000",              "",         "ended by a signal"),
            ("1",      "trap 'exit 5' TERM; while :; do :; done",     "",         "exit status 5"),
            ("1",      "trap '' TERM; while :; do :; done",           "",         "ended by a signal"),
        ]
        for seconds, script, output, says in rows:
            with self.subTest(script):
                self.expect(run("run", "--timeout", seconds, "--", "/bin/sh", "-c", script), 1,
                            stdout=output, stderr="tarnutil: deadline passed, " + says + "\n")

    def test_a_deadline_holds_while_nobody_reads_the_output(self):
        for script in ("echo $$ >&2; exec yes", "trap '' TERM; echo $$ >&2; exec yes"):
            with self.subTest(script), self.unread("--timeout", "1", "--", "/bin/sh", "-c", script) as process:
                self.expect_end(int(process.stderr.readline()))
                _, errors = process.communicate(timeout=60)
                self.assertEqual((process.returncode, errors),
                                 (1, b"tarnutil: deadline passed, ended by a signal\n"))

    def test_a_deadline_holds_while_there_is_always_something_to_do(self):
        process = run_redirected(">/dev/null", "--timeout", "0.2", "--", "/usr/bin/yes")
        self.expect(process, 1, stdout="", stderr="tarnutil: deadline passed, ended by a signal\n")

    def test_a_deadline_far_away_changes_nothing(self):
        self.expect(run("run", "--timeout", "1000", "--", "/bin/echo", "x"), 0, stdout="x\n")

    def test_the_program_has_the_usual_signals_and_no_descriptors_of_the_command(self):
        script = "grep SigIgn /proc/self/status; ls -l /proc/self/fd | grep -c 'pipe:'"
        process = run("run", "--", "/bin/sh", "-c", script)
        ignored, pipes = process.stdout.decode().splitlines()
        self.assertEqual(int(ignored.split()[1], 16) & (1 << 12), 0, "SIGPIPE")
        # Its three streams, the three that were saved for the command's own, and grep's input.
        self.assertEqual(int(pipes), 6)

    def test_nothing_to_run_is_a_usage_error(self):
        self.expect(run("run"), 2, stdout="")
        self.expect(run("run", "--timeout", "1"), 2, stdout="")

    def test_a_timeout_that_is_no_time_is_a_usage_error(self):
        for value in ("-1", "soon", "nan", "1e10"):
            self.expect(run("run", "--timeout", value, "--", "/bin/true"), 2, stdout="")

    def test_help_shows_an_example(self):
        process = run("run", "--help")
        self.expect(process, 0, stderr="")
        self.assertIn(b"Example", process.stdout)


if __name__ == "__main__":
    main()
