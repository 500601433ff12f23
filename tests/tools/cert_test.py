# SPDX-License-Identifier: Apache-2.0
"""tarnutil cert: what it prints of certificate files, and what it refuses."""

import json
import os
import subprocess
import tempfile

from command import CommandTest, main, run

DIRECTORY = os.environ["TARNUTIL_TEST_MATERIAL"]


def material(name):
    return os.path.join(DIRECTORY, name)


def cert(*arguments):
    return run("cert", *arguments)


def openssl(*arguments):
    return subprocess.run(["openssl", *arguments], check=True, capture_output=True).stdout.decode()


class ShowTest(CommandTest):
    def test_tells_what_stands_in_a_certificate(self):
        for name, found in (("leaf.pem", "PEM"), ("leaf.der", "DER")):
            process = cert("show", "--json", material(name))
            self.expect(process, 0, stderr="")
            shown = json.loads(process.stdout)
            self.assertEqual((shown["format"], shown["count"], shown["damage"]), (found, 1, None))
            leaf = shown["certificates"][0]
            self.assertEqual(leaf["subject"], "CN = leaf")
            self.assertEqual(leaf["issuer"], "CN = issuing")
            self.assertEqual(leaf["subject_alt_names"],
                             "DNS:localhost, DNS:a.example, IP Address:127.0.0.1")
            self.assertEqual(leaf["ocsp_url"], "http://ocsp.example/")
            self.assertEqual(leaf["crl_url"], "http://crl.example/list.crl")
            said = openssl("x509", "-in", material("leaf.pem"), "-noout", "-fingerprint", "-sha256",
                           "-startdate", "-enddate")
            self.assertIn(leaf["fingerprint"].replace("SHA256/", "Fingerprint="), said)
            self.assertIn("notBefore=" + leaf["not_before"], said)
            self.assertIn("notAfter=" + leaf["not_after"], said)

    def test_leaves_out_what_a_certificate_does_not_tell(self):
        process = cert("show", material("root.pem"))
        self.expect(process, 0)
        text = process.stdout.decode()
        self.assertIn("  subject      CN = root\n", text)
        for title in ("names", "OCSP", "CRL"):
            self.assertNotIn("  " + title, text)

    def test_shows_every_certificate_of_a_chain(self):
        text = cert("show", material("chain.pem")).stdout.decode()
        self.assertIn("PEM, 3 certificates", text)
        self.assertIn("certificate 3\n  subject      CN = policy\n", text)

    def test_says_where_damage_ended_the_reading(self):
        with tempfile.NamedTemporaryFile() as file:
            with open(material("leaf.pem"), "rb") as leaf:
                file.write(leaf.read() + b"-----BEGIN CERTIFICATE-----\nAAAA\n")
            file.flush()
            shown = json.loads(cert("show", "--json", file.name).stdout)
            self.assertEqual(shown["count"], 1)
            self.assertTrue(shown["damage"])

    def test_says_what_each_format_failed_with(self):
        path = material("rsa.pem")
        self.expect(cert("show", path), 2, "", "tarnutil: no certificate in " + path +
                    ": as PEM: no start line; as DER: wrong tag\n")

    def test_says_why_a_file_cannot_be_opened(self):
        self.expect(cert("show", "/nonexistent/file"), 2, "",
                    "tarnutil: cannot open /nonexistent/file: No such file or directory\n")


class IssuerTest(CommandTest):
    def test_finds_the_issuer_and_its_place(self):
        process = cert("issuer", "--json", material("leaf.pem"), material("chain.pem"))
        self.expect(process, 0, stderr="")
        told = json.loads(process.stdout)
        self.assertEqual((told["found"], told["place"]), (True, 2))
        self.assertEqual(told["issuer"]["subject"], "CN = issuing")

    def test_refuses_candidates_without_it(self):
        path = material("root.pem")
        self.expect(cert("issuer", material("leaf.pem"), path), 1, "",
                    "tarnutil: " + path + " does not hold the issuer of CN = leaf, which is CN = issuing\n")

    def test_wants_both_files(self):
        self.assertEqual(cert("issuer", material("leaf.pem")).returncode, 2)


class ChainTest(CommandTest):
    def told(self, name, status):
        process = cert("chain", "--json", material(name))
        self.expect(process, status)
        return json.loads(process.stdout)

    def test_a_good_chain_is_sent_whole(self):
        told = self.told("chain.pem", 0)
        self.assertEqual(told["server_sends"], ["CN = leaf", "CN = issuing", "CN = policy"])
        self.assertEqual(told["complaint"], "")

    def test_strangers_are_out_of_order(self):
        told = self.told("stranger.pem", 1)
        self.assertFalse(told["in_order"])
        self.assertFalse(told["holds_issuer"])

    def test_a_server_does_not_load_der(self):
        told = self.told("chain.der", 1)
        self.assertEqual(told["complaint"], "a server does not load it: it is not PEM")
        self.assertTrue(told["holds_issuer"])
        self.assertEqual(told["server_sends"], [])

    def test_a_leaf_alone_lacks_its_issuer(self):
        self.assertEqual(self.told("leaf.pem", 1)["complaint"],
                         "it does not hold the issuer of its leaf")

    def test_a_self_signed_certificate_needs_no_other(self):
        self.assertEqual(self.told("root.pem", 0)["self_signed"], True)

    def test_text_lists_what_is_sent(self):
        process = cert("chain", material("chain.pem"))
        self.expect(process, 0, stderr="")
        self.assertTrue(process.stdout.decode().endswith(
            "a server sends\n  CN = leaf\n  CN = issuing\n  CN = policy\n"))


class HelpTest(CommandTest):
    def test_every_command_shows_an_example(self):
        for arguments in ((), ("show",), ("issuer",), ("chain",)):
            process = cert(*arguments, "--help")
            self.expect(process, 0)
            self.assertIn("Example", process.stdout.decode())


main()
