# SPDX-License-Identifier: Apache-2.0
"""tarnutil token: both directions, against tokens made and read without the library."""

import json
import os
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path += [os.path.join(ROOT, "tests", "tokens"), os.path.join(ROOT, "examples")]

import issue as issuer  # noqa: E402
import read_token as reader  # noqa: E402
from command import CommandTest, main, run  # noqa: E402

NO_DECRYPT = "tarnutil: Could not RSA decrypt authentication token.\n"
TOO_SHORT = "tarnutil: Not enough data in authentication token.\n"
NOT_VALID = "tarnutil: Authentication token message digest did not validate.\n"


def openssl(*arguments):
    return subprocess.run(["openssl", *arguments], check=True, capture_output=True).stdout


def token_of(process):
    return process.stdout.decode().strip()


class TokenTest(CommandTest):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory()
        cls.key = cls.file("key.pem")
        cls.public = cls.file("key.pub")
        cls.other = cls.file("other.pem")
        openssl("genrsa", "-out", cls.key, "2048")
        openssl("genrsa", "-out", cls.other, "2048")
        openssl("pkey", "-in", cls.key, "-pubout", "-out", cls.public)

    @classmethod
    def tearDownClass(cls):
        cls.directory.cleanup()

    @classmethod
    def file(cls, name, content=None):
        path = os.path.join(cls.directory.name, name)
        if content is not None:
            with open(path, "w") as file:
                file.write(content)
        return path

    def issued(self, *arguments):
        process = run("token", "issue", "--key", self.key, *arguments)
        self.expect(process, 0, stderr="")
        return token_of(process)

    def check(self, token, *arguments):
        return run("token", "check", "--key", self.public, *arguments, stdin=token.encode())

    def test_issues_what_the_reader_opens(self):
        token = self.issued("--user", "alice", "--time", "1000", "x=", "role=admin", "pair=a=b")
        time, user, attributes = reader.parsed(reader.opened(self.public, token))
        self.assertEqual((time, user), (1000, b"alice"))
        self.assertEqual(attributes, {b"x": b"", b"role": b"admin", b"pair": b"a=b"})

    def test_issues_several_blocks_that_the_reader_opens(self):
        token = self.issued("--user", "u" * 700, "--time", "4294967295")
        self.assertEqual(reader.parsed(reader.opened(self.public, token)), (4294967295, b"u" * 700, {}))

    def test_checks_what_the_issuer_made(self):
        for attributes in ({}, {b"role": b"admin"}, {b"long": b"v" * 1000, b"x": b""}):
            token = issuer.sealed(issuer.plaintext(b"bob", attributes, 77), self.key)
            process = self.check(token, "--json")
            self.expect(process, 0, stderr="")
            self.assertEqual(
                json.loads(process.stdout),
                {"user": "bob", "time": 77,
                 "attributes": {name.decode(): value.decode() for name, value in attributes.items()}})

    def test_the_reader_is_a_program_too(self):
        token = self.issued("--user", "alice", "--time", "5", "a=b")
        script = os.path.join(ROOT, "examples", "read_token.py")
        output = subprocess.run([sys.executable, script, self.public, token], check=True, capture_output=True)
        self.assertEqual(json.loads(output.stdout), {"user": "alice", "time": 5, "attributes": {"a": "b"}})
        forged = issuer.sealed(issuer.plaintext(b"alice", {}, 5)[:-1] + b"!", self.key)
        refused = subprocess.run([sys.executable, script, self.public, forged], capture_output=True)
        self.assertEqual(refused.returncode, 1)
        self.assertEqual(refused.stderr, b"refused: the digest does not match\n")

    def test_prints_user_time_and_attributes(self):
        token = self.issued("--user", "alice", "--time", "1000", "role=admin", "x=")
        text = "user: alice\ntime: 1000 (1970-01-01T00:16:40Z)\nattribute: role=admin\nattribute: x=\n"
        self.expect(self.check(token), 0, stdout=text, stderr="")
        self.expect(self.check(token + "\n", "-"), 0, stdout=text)
        self.expect(self.check("", token), 0, stdout=text)

    def test_prints_what_could_steer_a_terminal_in_hex(self):
        token = self.issued("--user", "a\x1b[31m\nuser: b\\", "--time", "0")
        self.expect(self.check(token), 0,
                    stdout="user: a\\x1b[31m\\x0auser: b\\x5c\ntime: 0 (1970-01-01T00:00:00Z)\n")

    def test_only_utf8_without_control_characters_is_printed_as_it_is(self):
        for user, shown in ((b"\xc3\xa4 \xe2\x82\xac \xf0\x9f\x99\x82~", "\u00e4 \u20ac \U0001f642~"),
                            (b"\x7f", "\\x7f"),
                            (b"\x9b31m", "\\x9b31m"),                        # C1 as a byte
                            (b"\xc2\x80\xc2\x9f\xc2\xa0", "\\xc2\\x80\\xc2\\x9f\u00a0"),  # C1 in UTF-8
                            (b"\xff\xc3a\xc3", "\\xff\\xc3a\\xc3"),
                            (b"\xc1\x81\xe0\x82\x9b", "\\xc1\\x81\\xe0\\x82\\x9b"),  # longer than they need be
                            (b"\xed\xa0\x80", "\\xed\\xa0\\x80"),            # half of a pair
                            (b"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80")):  # beyond the last
            with self.subTest(user):
                token = issuer.sealed(issuer.plaintext(user, {}, 0), self.key)
                self.expect(self.check(token), 0, stdout=f"user: {shown}\ntime: 0 (1970-01-01T00:00:00Z)\n")

    def test_issues_json(self):
        process = run("token", "issue", "--key", self.key, "--user", "u", "--json", "--time", "1")
        self.expect(process, 0, stderr="")
        self.assertEqual(json.loads(process.stdout), {"token": self.issued("--user", "u", "--time", "1")})

    def test_bytes_that_are_no_text_stay_valid_json(self):
        token = issuer.sealed(issuer.plaintext(b"\xff", {}, 1), self.key)
        process = self.check(token, "--json")
        self.expect(process, 0)
        self.assertEqual(json.loads(process.stdout)["user"], "\ufffd")

    def test_takes_the_current_time(self):
        process = self.check(self.issued("--user", "u"), "--max-age", "300")
        self.expect(process, 0, stderr="")

    def test_refuses_a_token_that_is_too_old_or_too_new(self):
        process = self.check(self.issued("--user", "u", "--time", "1000"), "--max-age", "300")
        self.expect(process, 1, stdout="")
        self.assertRegex(process.stderr, rb"^tarnutil: The token is \d+ seconds old, which is more than 300\.\n$")
        process = self.check(self.issued("--user", "u", "--time", "4294967295"), "--max-age", "300")
        self.expect(process, 1, stdout="")
        self.assertIn(b"in the future", process.stderr)

    def test_refuses_with_the_sentence_of_the_library(self):
        good = issuer.plaintext(b"bob", {b"a": b"b"}, 77)
        changed = bytes([good[0] ^ 1]) + good[1:]
        self.expect(self.check(issuer.sealed(changed, self.key)), 1, stdout="", stderr=NOT_VALID)
        self.expect(self.check(issuer.sealed(good, self.other)), 1, stdout="", stderr=NO_DECRYPT)
        self.expect(self.check("nonsense"), 1, stdout="", stderr=NO_DECRYPT)
        self.expect(self.check(""), 1, stdout="", stderr=TOO_SHORT)

    def test_trace_shows_class_and_place(self):
        process = run("--trace", "token", "check", "--key", self.public, "AAAA")
        self.expect(process, 1, stdout="")
        lines = process.stderr.decode().splitlines()
        self.assertEqual(lines[:2], [NO_DECRYPT.strip(), "tarnutil::Exception"])
        self.assertTrue(any("tarnutil::CryptoUtil::decryptAuthToken" in line for line in lines), lines)

    def test_opens_with_a_certificate(self):
        certificate = self.file("cert.pem")
        openssl("req", "-x509", "-new", "-key", self.key, "-subj", "/CN=issuer", "-days", "2", "-out", certificate)
        process = run("token", "check", "--cert", certificate, self.issued("--user", "u", "--time", "0"))
        self.expect(process, 0, stdout="user: u\ntime: 0 (1970-01-01T00:00:00Z)\n", stderr="")

    def test_opens_with_every_form_of_a_public_key(self):
        token = self.issued("--user", "u", "--time", "0")
        for form in (("-RSAPublicKey_out",), ("-pubout", "-outform", "DER"), ("-pubout",)):
            path = self.file("form")
            openssl("rsa", "-in", self.key, *form, "-out", path)
            self.expect(run("token", "check", "--key", path, token), 0, stderr="")
            with open(path, "rb") as file:  # through a pipe, which can be read but once
                process = run("token", "check", "--key", "/dev/stdin", token, stdin=file.read())
            self.expect(process, 0, stderr="")

    def test_what_is_no_public_key_is_unreadable(self):
        for path in ("/dev/null", "/dev/zero", self.directory.name):
            self.expect(run("token", "check", "--key", path, "AAAA"), 2, stdout="",
                        stderr=f"tarnutil: cannot read an RSA public key from {path}\n")

    def test_a_public_key_that_says_it_is_locked_asks_nobody(self):
        for kind in ("PUBLIC KEY", "RSA PUBLIC KEY"):
            lines = (f"-----BEGIN {kind}-----", "Proc-Type: 4,ENCRYPTED",
                     "DEK-Info: AES-128-CBC,000102030405060708090A0B0C0D0E0F", "", "AAAAAAAAAAAAAAAAAAAAAA==",
                     f"-----END {kind}-----", "")
            path = self.file("locked.pub", "\n".join(lines))
            self.expect(run("token", "check", "--key", path, "AAAA", stdin=b"secret\n"), 2, stdout="",
                        stderr=f"tarnutil: cannot read an RSA public key from {path}\n")

    def test_issues_with_an_encrypted_key_and_with_der(self):
        locked, der = self.file("locked.pem"), self.file("key.der")
        openssl("rsa", "-in", self.key, "-aes128", "-passout", "pass:secret", "-out", locked)
        openssl("rsa", "-in", self.key, "-outform", "DER", "-out", der)
        expected = self.issued("--user", "u", "--time", "0")
        password = self.file("password", "secret\nsecond line\n")
        process = run("token", "issue", "--key", locked, "--password-file", password, "--user", "u", "--time", "0")
        self.expect(process, 0, stdout=expected + "\n")
        self.expect(run("token", "issue", "--key", der, "--user", "u", "--time", "0"), 0, stdout=expected + "\n")
        unreadable = f"tarnutil: cannot read an RSA private key from {locked}\n"
        wrong = self.file("wrong", "guess\n")
        for more in ((), ("--password-file", wrong)):
            process = run("token", "issue", "--key", locked, "--user", "u", *more)
            self.expect(process, 2, stdout="", stderr=unreadable)

    def test_unreadable_input_is_exit_code_2(self):
        missing = self.file("missing")
        self.expect(run("token", "issue", "--key", missing, "--user", "u"), 2,
                    stderr=f"tarnutil: cannot read an RSA private key from {missing}\n")
        self.expect(run("token", "check", "--key", missing, "AAAA"), 2,
                    stderr=f"tarnutil: cannot read an RSA public key from {missing}\n")
        self.expect(run("token", "check", "--cert", self.public, "AAAA"), 2,
                    stderr=f"tarnutil: cannot read a certificate with an RSA key from {self.public}\n")
        self.expect(run("token", "issue", "--key", self.key, "--password-file", missing, "--user", "u"), 2,
                    stderr=f"tarnutil: cannot read a password from {missing}\n")

    def test_usage_errors_are_exit_code_2(self):
        for arguments in (("token",), ("token", "issue", "--user", "u"), ("token", "issue", "--key", self.key),
                          ("token", "check", "AAAA"),
                          ("token", "check", "--key", self.public, "--cert", self.public, "AAAA"),
                          ("token", "check", "--key", self.public, "--max-age", "-1", "AAAA"),
                          ("token", "issue", "--key", self.key, "--user", "u", "novalue"),
                          ("token", "issue", "--key", self.key, "--user", "u", "a=1", "a=2")):
            process = run(*arguments)
            self.expect(process, 2, stdout="")
            self.assertNotEqual(process.stderr, b"", arguments)

    def test_help_shows_an_example(self):
        for arguments in (("token",), ("token", "issue"), ("token", "check")):
            process = run(*arguments, "--help")
            self.expect(process, 0, stderr="")
            self.assertIn(b"Example:\n  $ tarnutil token", process.stdout)


if __name__ == "__main__":
    main()
