# SPDX-License-Identifier: Apache-2.0
"""Reads an authentication token, written from docs/token.md alone: base64 and digests are Python's,
RSA is the openssl command's.

    python3 read_token.py PUBLIC_KEY.pem [TOKEN]      the token is read from standard input if missing

Prints user, time and attributes as JSON, or says on standard error why the token is refused.
"""

import base64
import binascii
import hashlib
import json
import subprocess
import sys

DIGEST_SIZE = 20


class Refused(Exception):
    pass


def openssl(*arguments, data=b""):
    return subprocess.run(["openssl", *arguments], input=data, capture_output=True, check=True).stdout


def block_size(key):
    """The size of the key's modulus in bytes."""
    modulus = openssl("rsa", "-pubin", "-in", key, "-noout", "-modulus")
    return len(modulus.strip().removeprefix(b"Modulus=")) // 2


def opened_block(key, block):
    try:
        return openssl("pkeyutl", "-verifyrecover", "-pubin", "-inkey", key,
                       "-pkeyopt", "rsa_padding_mode:pkcs1", data=block)
    except subprocess.CalledProcessError:
        raise Refused("a block was not made with the private key") from None


def opened(key, token):
    """The plaintext of a token."""
    ciphertext = base64.b64decode(token, validate=True)
    size = block_size(key)
    if not ciphertext or len(ciphertext) % size:
        raise Refused("not a whole number of blocks")
    return b"".join(opened_block(key, ciphertext[i:i + size]) for i in range(0, len(ciphertext), size))


class Fields:
    """Takes one field after the other from the front of some bytes."""

    def __init__(self, data):
        self.data = data

    def take(self, size):
        if len(self.data) < size:
            raise Refused("a field runs past the end")
        taken, self.data = self.data[:size], self.data[size:]
        return taken

    def integer(self):
        return int.from_bytes(self.take(4), "little")

    def string(self):
        return self.take(self.integer())


def parsed(plaintext):
    """Time stamp, user and attributes (None if the token is a short one) of a plaintext."""
    if len(plaintext) < 8 + DIGEST_SIZE:
        raise Refused("too short")
    content, digest = plaintext[:-DIGEST_SIZE], plaintext[-DIGEST_SIZE:]
    if hashlib.sha1(content).digest() != digest:
        raise Refused("the digest does not match")
    fields = Fields(content)
    time, user = fields.integer(), fields.string()
    if not fields.data:
        return time, user, None
    fields.take(DIGEST_SIZE)
    attributes = {}
    for _ in range(fields.integer()):
        name, _, value = fields.string().partition(b"=")
        attributes[name] = value
    return time, user, attributes


def main():
    key = sys.argv[1]
    token = (sys.argv[2] if len(sys.argv) > 2 else sys.stdin.read()).strip()
    try:
        time, user, attributes = parsed(opened(key, token))
    except (Refused, binascii.Error) as error:
        sys.exit(f"refused: {error}")
    text = {name.decode("latin-1"): value.decode("latin-1") for name, value in (attributes or {}).items()}
    print(json.dumps({"user": user.decode("latin-1"), "time": time, "attributes": text}))


if __name__ == "__main__":
    main()
