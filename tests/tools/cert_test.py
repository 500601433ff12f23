# SPDX-License-Identifier: Apache-2.0
"""tarnutil cert: what it prints of certificate files, and what it refuses."""

import contextlib
import json
import os
import pathlib
import subprocess
import tempfile

from command import CommandTest, main, run

DIRECTORY = os.environ["TARNUTIL_TEST_MATERIAL"]


def material(name):
    return os.path.join(DIRECTORY, name)


def cert(*arguments):
    return run("cert", *arguments)


def content(*names):
    """The bytes of the named files, joined."""
    return b"".join(pathlib.Path(material(name)).read_bytes() for name in names)


CUT_BLOCK = b"-----BEGIN CERTIFICATE-----\nAAAA\n"


@contextlib.contextmanager
def written(content):
    """The path of a file that holds the bytes."""
    with tempfile.NamedTemporaryFile() as file:
        file.write(content)
        file.flush()
        yield file.name


def tlv(tag, content):
    return bytes([tag, len(content)]) + content


def made(extension, value):
    """A certificate with one extension, given by its bytes."""
    with written(f"[req]\ndistinguished_name=n\n[n]\n[x]\n{extension}=DER:{value.hex(':')}\n".encode()) as conf:
        return openssl("req", "-x509", "-config", conf, "-extensions", "x", "-subj", "/CN=made",
                       "-key", material("ec.pem")).encode()


def openssl(*arguments):
    return subprocess.run(["openssl", *arguments], check=True, capture_output=True).stdout.decode()


def no_certificate(name):
    """What is said of a file that holds PEM of another kind."""
    return f"tarnutil: no certificate in {material(name)}: as PEM: no start line; as DER: wrong tag\n"


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
        for first, then in (("leaf.pem", CUT_BLOCK), ("leaf.der", b"x")):
            with written(content(first) + then) as path:
                shown = json.loads(cert("show", "--json", path).stdout)
                self.assertEqual(shown["count"], 1, first)
                self.assertTrue(shown["damage"], first)
                text = cert("show", path).stdout.decode()
                self.assertTrue(text.endswith("\nreading ended at damage: " + shown["damage"] + "\n"), text)

    def fact(self, key, certificate):
        with written(certificate) as path:
            process = cert("show", "--json", path)
        self.expect(process, 0, stderr="")
        return json.loads(process.stdout)["certificates"][0][key]

    def test_names_that_do_not_decode_are_not_shown_as_none(self):
        undecodable = made("subjectAltName", b"\x30\x03\x02\x01")
        self.assertEqual(self.fact("subject_alt_names", undecodable), "(cannot be printed)")

    def test_an_address_that_holds_a_nul_is_shown_whole(self):
        for address in (b"http://a/\0b", b"ldap://a/\0b"):
            names = tlv(0x86, b"") + tlv(0x82, b"name") + tlv(0x86, b"ftp://other") + tlv(0x86, address)
            nameless = tlv(0x30, tlv(0x81, b"\x01\x40"))
            relative = tlv(0x30, tlv(0xA0, tlv(0xA1, b"\x30\x08\x06\x03\x55\x04\x03\x0C\x01r")))
            full = tlv(0x30, tlv(0xA0, tlv(0xA0, names)))
            points = made("crlDistributionPoints", tlv(0x30, nameless + relative + full))
            self.assertEqual(self.fact("crl_url", points), address.decode().replace("\0", "\\x00"))

    def test_what_could_steer_a_terminal_is_shown_in_hex(self):
        for address, shown in ((b"a\x1b[m\n", "a\\x1b[m\\x0a"), (b"\x9bm", "\\x9bm"), (b"\\x0a", "\\x5cx0a")):
            points = tlv(0x30, tlv(0x30, tlv(0xA0, tlv(0xA0, tlv(0x86, b"http://" + address)))))
            self.assertEqual(self.fact("crl_url", made("crlDistributionPoints", points)), "http://" + shown)

    def test_a_subject_is_shown_in_the_same_way(self):
        for name, shown in (("a\x1b\n", "a\\x1b\\x0a"), ("\u009bm", "\\xc2\\x9bm"), ("\u00e4", "\u00e4"),
                            ("a, b", '"a, b"')):
            with self.subTest(shown):
                subject = openssl("req", "-x509", "-utf8", "-subj", "/CN=" + name, "-key", material("ec.pem"))
                self.assertEqual(self.fact("subject", subject.encode()), "CN = " + shown)

    def test_says_what_each_format_failed_with(self):
        self.expect(cert("show", material("rsa.pem")), 2, "", no_certificate("rsa.pem"))

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

    def test_json_says_that_it_was_not_found(self):
        process = cert("issuer", "--json", material("leaf.pem"), material("root.pem"))
        self.expect(process, 1)
        self.assertEqual(json.loads(process.stdout),
                         {"subject": "CN = leaf", "found": False, "damage": None})

    def test_damage_before_it_was_found_is_no_answer(self):
        with written(content("root.pem") + CUT_BLOCK) as path:
            for form in ((), ("--json",)):
                self.expect(cert("issuer", *form, material("leaf.pem"), path), 2, "",
                            "tarnutil: " + path + ": reading ended at damage: bad end line\n")

    def test_damage_behind_it_is_told(self):
        with written(content("issuing.pem") + CUT_BLOCK) as path:
            process = cert("issuer", material("leaf.pem"), path)
            self.expect(process, 0, "CN = leaf was issued by certificate 1 of " + path +
                        ": CN = issuing\n" + path + ": reading ended at damage: bad end line\n", "")
            told = json.loads(cert("issuer", "--json", material("leaf.pem"), path).stdout)
            self.assertEqual((told["found"], told["damage"]), (True, "bad end line"))

    def test_says_which_file_holds_no_certificate(self):
        for files in (("leaf.pem", "rsa.pem"), ("rsa.pem", "chain.pem")):
            self.expect(cert("issuer", *map(material, files)), 2, "", no_certificate("rsa.pem"))

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

    def test_a_server_does_not_load_damage(self):
        with written(content("leaf.pem") + CUT_BLOCK) as path:
            told = self.told(path, 1)
        self.assertEqual(told["complaint"], "a server does not load it: bad end line")

    def test_says_that_a_file_holds_no_certificate(self):
        self.expect(cert("chain", material("rsa.pem")), 2, "", no_certificate("rsa.pem"))

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
