# SPDX-License-Identifier: Apache-2.0
"""openssl s_client against the example server: s_client_test.py SERVER MATERIAL_DIRECTORY"""

import os
import subprocess
import sys
import unittest

DIRECTORY = sys.argv.pop()
SERVER = sys.argv.pop()


def material(name):
    return os.path.join(DIRECTORY, name)


class SClientTest(unittest.TestCase):
    def handshake(self, version):
        server = subprocess.Popen([SERVER, material("chain.pem"), material("leaf.key.pem")],
                                  stdout=subprocess.PIPE)
        with server:
            port = server.stdout.readline().decode().strip()
            client = subprocess.run(
                ["openssl", "s_client", version, "-connect", "127.0.0.1:" + port, "-showcerts",
                 "-CAfile", material("root.pem"), "-verify_return_error", "-ign_eof"],
                stdin=subprocess.DEVNULL, capture_output=True, timeout=30)
        self.assertEqual(server.returncode, 0)
        return client.stdout.decode()

    def test_the_chain_arrives_whole_and_verifies(self):
        for version in ("-tls1_2", "-tls1_3"):
            with self.subTest(version):
                said = self.handshake(version)
                self.assertEqual(said.count("BEGIN CERTIFICATE"), 3)
                self.assertIn("Verify return code: 0 (ok)", said)
                self.assertIn("hello\n", said)

    def test_a_bad_chain_is_refused_before_it_listens(self):
        server = subprocess.run([SERVER, material("damaged.pem"), material("leaf.key.pem")],
                                capture_output=True, timeout=30)
        self.assertEqual((server.returncode, server.stdout), (1, b""))


unittest.main()
