# SPDX-License-Identifier: Apache-2.0
"""Issues tokens without the library: the openssl command encrypts, the layout is written out here.

Run as a script, it makes the keys that are missing in this directory and writes the golden tokens
of each: tests/token_test.cpp lists what they say.
"""

import base64
import hashlib
import os
import struct
import subprocess
import sys

PADDING = 11
SIZES = [1024, 1536, 2048, 2056, 3072, 4096]
GOLDEN = {
    "one": (b"alice", {b"role": b"admin", b"x": b""}, 1000),
    "several": (b"bob", {b"note": b"0123456789" * 90, b"pair": b"a=b"}, 4000000000),
}


def openssl(*arguments, data=b""):
    return subprocess.run(["openssl", *arguments], input=data, capture_output=True, check=True).stdout


def sha1(data):
    return hashlib.sha1(data).digest()


def field(data):
    return struct.pack("<I", len(data)) + data


def plaintext(user, attributes, time):
    text = struct.pack("<I", time) + field(user)
    text += sha1(text)
    text += struct.pack("<I", len(attributes))
    for name in sorted(attributes):
        text += field(name + b"=" + attributes[name])
    return text + sha1(text)


def sealed(text, key):
    """The token of a plaintext, with the private key in the file `key`."""
    modulus = openssl("rsa", "-in", key, "-noout", "-modulus").strip().removeprefix(b"Modulus=")
    piece = len(modulus) // 2 - PADDING
    blocks = (openssl("rsautl", "-sign", "-inkey", key, data=text[i:i + piece])
              for i in range(0, len(text), piece))
    return base64.b64encode(b"".join(blocks)).decode()


def main():
    os.chdir(os.path.dirname(os.path.abspath(__file__)))
    for size in SIZES:
        key = f"{size}.pem"
        if not os.path.exists(key):
            openssl("genrsa", "-out", key, str(size))
        for name, content in GOLDEN.items():
            with open(f"{size}.{name}.token", "w") as file:
                file.write(sealed(plaintext(*content), key))


if __name__ == "__main__":
    sys.exit(main())
