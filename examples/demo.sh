#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Issues an authentication token with a private key from a file, opens it with the public key, and
# shows where a forged one is refused.
#
#   examples/demo.sh TARNUTIL      TARNUTIL is the built command
set -euo pipefail
tarnutil=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

say() { printf '\n== %s\n' "$*"; }

# Runs a command that has to be refused, and shows what it says.
refused() {
    local status=0
    "$@" || status=$?
    [ "$status" -eq 1 ] || { echo "demo: expected a refusal, got exit code $status" >&2; exit 1; }
}

openssl genrsa -out forger.pem 2048 2>/dev/null
openssl genrsa -aes256 -passout pass:open-sesame -out issuer.pem 2048 2>/dev/null
openssl pkey -in issuer.pem -passin pass:open-sesame -pubout -out issuer.pub
echo open-sesame >password

say 'A token for alice, issued with the private key in issuer.pem:'
"$tarnutil" token issue --key issuer.pem --password-file password --user alice role=admin host=db1 |
    tee token

say 'Opened with the public key:'
"$tarnutil" token check --key issuer.pub --max-age 60 <token

say 'The same name, issued with the key of a forger, is refused, and here is where:'
"$tarnutil" token issue --key forger.pem --user alice role=admin >forged
refused "$tarnutil" --trace token check --key issuer.pub <forged 2>&1

say 'So is the good token with its end cut off:'
cut -c 1-300 token >short
refused "$tarnutil" token check --key issuer.pub <short 2>&1

say 'One opened, two refused.'
