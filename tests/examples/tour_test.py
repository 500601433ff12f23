# SPDX-License-Identifier: Apache-2.0
"""openssl s_client on the tour: tour_test.py TOUR MATERIAL_DIRECTORY"""

import base64
import contextlib
import gzip
import os
import resource
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tokens"))
import issue  # noqa: E402

DIRECTORY = sys.argv.pop()
TOUR = sys.argv.pop()
CIPHERS = "tlsv1_3:ecdhe+aes-gcm:ecdhe_ecdsa+aes-gcm:@strength"


def material(name):
    return os.path.join(DIRECTORY, name)


def command(chain="chain.pem", ciphers=CIPHERS):
    return [TOUR, material(chain), material("leaf.key.pem"), material("rsa.pem"), ciphers]


class Client:
    """One connection; what s_client itself says is in `handshake` at the end."""

    def __init__(self, address, *options):
        self.process = subprocess.Popen(
            ["openssl", "s_client", "-connect", address, "-brief", "-no_ign_eof",
             "-CAfile", material("root.pem"), "-verify_return_error", *options],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        _, self.handshake = self.process.communicate(timeout=30)

    def ask(self, request):
        self.process.stdin.write(request + "\n")
        self.process.stdin.flush()
        return self.process.stdout.readline().rstrip("\n")


class TourTest(unittest.TestCase):
    def setUp(self):
        self.temporary = tempfile.TemporaryDirectory()
        self.addCleanup(self.temporary.cleanup)
        self.server = subprocess.Popen(
            command(), stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
            env=dict(os.environ, TMPDIR=self.temporary.name))
        self.addCleanup(self.end)
        self.address = self.server.stdout.readline().strip()

    def end(self):
        if self.server.poll() is None:
            self.server.kill()
        self.server.communicate()

    def stop(self):
        """What the server had to report, once it has ended as it should."""
        with Client(self.address) as client:
            token = client.ask("token operator may=stop")
            self.assertEqual(client.ask("stop " + token), "stopping")
        _, reports = self.server.communicate(timeout=30)
        self.assertEqual(self.server.returncode, 0)
        self.assertEqual(os.listdir(self.temporary.name), [])
        return reports

    def test_a_token_is_issued_and_accepted(self):
        for version in ("-tls1_2", "-tls1_3"):
            with self.subTest(version), Client(self.address, version) as client:
                token = client.ask("token alice floor=2 shift=late")
                self.assertEqual(len(base64.b64decode(token, validate=True)), 256)
                self.assertEqual(client.ask("check " + token),
                                 "accepted: floor=2 shift=late user=alice")
        self.assertEqual(self.stop(), "")

    def test_a_forged_token_is_refused_and_the_server_says_where(self):
        sentence = "Could not RSA decrypt authentication token."
        for version in ("-tls1_2", "-tls1_3"):
            with self.subTest(version), Client(self.address, version) as client:
                token = client.ask("token mallory")
                forged = token[:99] + ("B" if token[99] == "A" else "A") + token[100:]
                self.assertEqual(client.ask("check " + forged), "refused: " + sentence)
                self.assertEqual(client.ask("check " + token), "accepted: user=mallory")
        reports = self.stop()
        self.assertEqual(reports.count(": tarnutil::Exception: " + sentence + "\n"), 2)
        self.assertRegex(reports, r"(?m)^client 0 at 127\.0\.0\.1:\d+: ")
        self.assertRegex(reports, r"(?m)^  at .*libtarnutil.*\(tarnutil::CryptoUtil::decryptAuthToken\(")
        self.assertRegex(reports, r"(?m)^  at .*tour\(tour::Server::")

    def test_a_token_of_another_hour_is_refused(self):
        now = int(time.time())
        with Client(self.address) as client:
            for issued, answer in ((now - 3900, "refused: Not a token of this hour."),
                                   (now - 3300, "accepted: user=alice"),
                                   (now + 3300, "accepted: user=alice"),
                                   (now + 3900, "refused: Not a token of this hour.")):
                with self.subTest(issued - now):
                    token = issue.sealed(issue.plaintext(b"alice", {}, issued), material("rsa.pem"))
                    self.assertEqual(client.ask("check " + token), answer)
        self.stop()

    def test_only_a_token_that_says_so_stops_it(self):
        with Client(self.address) as client:
            token = client.ask("token alice may=look")
            self.assertEqual(client.ask("stop " + token),
                             "refused: The token does not say may=stop.")
            self.assertEqual(client.ask("dance"), "refused: There is no such request.")
        self.assertEqual(self.stop().count(": tarnutil::Exception: "), 2)

    def test_open_connections_have_the_smallest_numbers(self):
        with Client(self.address) as first:
            self.assertEqual(first.ask("status"), "open: 0")
            with Client(self.address) as second:
                self.assertEqual(second.ask("status"), "open: 0 1")
                with Client(self.address) as third:
                    self.assertEqual(third.ask("status"), "open: 0 1 2")
        self.stop()

    def test_a_child_packs_the_journal(self):
        with Client(self.address) as client:
            client.ask("status")
            journal = gzip.decompress(base64.b64decode(client.ask("journal"))).decode()
        self.assertRegex(journal, r"\Aclient 0 at 127\.0\.0\.1:\d+: status\n"
                                  r"client 0 at 127\.0\.0\.1:\d+: journal\n\Z")
        self.stop()

    def test_a_child_that_cannot_pack_the_journal_is_no_second_server(self):
        with contextlib.ExitStack() as stack:
            # Each worker has a client: one that accepts would hold a descriptor that no child gets.
            for number in range(4):
                client = stack.enter_context(Client(self.address))
                self.assertEqual(client.ask("status").split()[-1], str(number))
            taken = {int(name) for name in os.listdir(f"/proc/{self.server.pid}/fd")}
            free = [number for number in range(100) if number not in taken]
            usual = resource.prlimit(self.server.pid, resource.RLIMIT_NOFILE)
            for saved in range(3):
                with self.subTest(saved):
                    limit = free[6 + saved]  # six ends of pipes come before the streams it saves
                    resource.prlimit(self.server.pid, resource.RLIMIT_NOFILE, (limit, usual[1]))
                    self.assertEqual(client.ask("journal"), "refused: The journal could not be packed.")
                    self.assertEqual(client.ask("status"), "open: 0 1 2 3")
            resource.prlimit(self.server.pid, resource.RLIMIT_NOFILE, usual)
        self.assertEqual(self.stop().count(": tarnutil::Exception: The journal could not be packed.\n"), 3)

    def test_no_child_inherits_a_socket(self):
        with Client(self.address) as client:
            client.ask("status")
            of_process = f"/proc/{self.server.pid}/"
            sockets = [fd for fd in os.listdir(of_process + "fd")
                       if os.readlink(of_process + "fd/" + fd).startswith("socket:")]
            self.assertEqual(len(sockets), 2)
            for fd in sockets:
                with open(of_process + "fdinfo/" + fd) as info:
                    flags = next(line.split()[1] for line in info if line.startswith("flags:"))
                self.assertTrue(int(flags, 8) & os.O_CLOEXEC, fd)
        self.stop()

    def test_the_strongest_suite_comes_first(self):
        for version, suite in (("-tls1_2", "ECDHE-ECDSA-AES256-GCM-SHA384"),
                               ("-tls1_3", "TLS_AES_256_GCM_SHA384")):
            with self.subTest(version):
                with Client(self.address, version) as client:
                    client.ask("status")
                self.assertIn("Ciphersuite: " + suite + "\n", client.handshake)
                self.assertIn("Verification: OK\n", client.handshake)
        self.stop()

    def test_a_suite_that_was_not_picked_gives_no_handshake(self):
        with Client(self.address, "-tls1_2", "-cipher", "ECDHE-ECDSA-CHACHA20-POLY1305") as client:
            self.assertEqual(client.process.stdout.read(), "")
        self.assertIn(": tarnutil::Exception: No handshake\n", self.stop())


class StartTest(unittest.TestCase):
    def test_what_it_cannot_serve_it_refuses_before_it_listens(self):
        for arguments, message in (
                ({"chain": "damaged.pem"}, "tour: tarnutil::Exception: Could not load the chain: "),
                ({"ciphers": "aes:tls9"}, "tour: tarnutil::Exception: Not a cipher string: aes:tls9\n")):
            with self.subTest(**arguments):
                run = subprocess.run(command(**arguments), capture_output=True, text=True, timeout=30)
                self.assertEqual((run.returncode, run.stdout), (1, ""))
                self.assertEqual(run.stderr[:len(message)], message)
                self.assertIn("\n  at ", run.stderr)

    def test_wrong_arguments_are_told_the_right_ones(self):
        run = subprocess.run([TOUR], capture_output=True, text=True, timeout=30)
        self.assertEqual((run.returncode, run.stderr),
                         (2, "usage: tour CHAIN KEY TOKEN_KEY CIPHERS\n"))


unittest.main()
