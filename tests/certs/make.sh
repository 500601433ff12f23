#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes the keys, certificates, requests and revocation lists that the tests read.
#
#   make.sh DIRECTORY
#
# All passwords are "secret". A chain of three: leaf, issuing, policy; root issued the last.
set -euo pipefail
mkdir -p "$1"
cd "$1"

quietly() { "$@" >command.log 2>&1 || { cat command.log >&2; exit 1; }; }

# In every form that a key can be written in: make_key NAME GENPKEY_ARGUMENT...
make_key() {
    local name=$1
    shift
    quietly openssl genpkey "$@" -out "$name.pem"
    quietly openssl pkcs8 -topk8 -in "$name.pem" -nocrypt -outform DER -out "$name.pkcs8.der"
    quietly openssl pkcs8 -topk8 -in "$name.pem" -v2 aes-256-cbc -iter 16 -passout pass:secret \
        -out "$name.locked.pem"
    quietly openssl pkcs8 -topk8 -in "$name.pem" -v2 aes-256-cbc -iter 16 -passout pass:secret \
        -outform DER -out "$name.locked.der"
    openssl pkey -in "$name.pem" -pubout -out "$name.pub.pem"
}

# The forms that are older than PKCS#8, for algorithms that have them: traditional_forms NAME
traditional_forms() {
    quietly openssl pkey -in "$1.pem" -traditional -out "$1.traditional.pem"
    quietly openssl pkey -in "$1.pem" -traditional -outform DER -out "$1.traditional.der"
    quietly openssl pkey -in "$1.pem" -traditional -aes128 -passout pass:secret \
        -out "$1.traditional.locked.pem"
}

make_key rsa -algorithm RSA -pkeyopt rsa_keygen_bits:2048
make_key ec -algorithm EC -pkeyopt ec_paramgen_curve:P-256
make_key ed25519 -algorithm ED25519
traditional_forms rsa
traditional_forms ec

cat >ca.conf <<'CONF'
[req]
distinguished_name = dn
[dn]
[ca]
default_ca = lists
[lists]
database = index.txt
crlnumber = crlnumber.txt
default_md = sha256
default_crl_days = 3650
[authority]
basicConstraints = critical, CA:TRUE
subjectKeyIdentifier = hash
[leaf]
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
subjectAltName = DNS:localhost, DNS:a.example, IP:127.0.0.1
authorityInfoAccess = OCSP;URI:http://ocsp.example/
crlDistributionPoints = URI:http://crl.example/list.crl
[unidentified]
basicConstraints = critical, CA:TRUE
subjectKeyIdentifier = none
authorityKeyIdentifier = none
[names]
subjectAltName = DNS:a.example, DNS:b.example
CONF

# A key of its own and a certificate: make_cert NAME SECTION [ISSUER] [SUBJECT]
make_cert() {
    local name=$1 section=$2 issuer=${3-} subject=${4-$1}
    quietly openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out "$name.key.pem"
    quietly openssl req -new -config ca.conf -key "$name.key.pem" -subj "/CN=$subject" -out "$name.req"
    local signer=(-signkey "$name.key.pem")
    if [ -n "$issuer" ]; then
        signer=(-CA "$issuer.pem" -CAkey "$issuer.key.pem" -set_serial "0x$(openssl rand -hex 8)")
    fi
    quietly openssl x509 -req -in "$name.req" -days 3650 -sha256 -extfile ca.conf \
        -extensions "$section" "${signer[@]}" -out "$name.pem"
    openssl x509 -in "$name.pem" -outform DER -out "$name.der"
}
make_cert root authority
make_cert policy authority root
make_cert issuing authority policy
make_cert leaf leaf issuing
make_cert unrelated authority
# Another of the same name with another key, which no identifier tells apart, and what it signed.
make_cert namesake unidentified '' issuing
make_cert forged unidentified namesake
cat leaf.pem issuing.pem policy.pem >chain.pem
cat leaf.der issuing.der policy.der >chain.der
cat leaf.pem unrelated.pem >stranger.pem
# As servers keep them: the chain, then the key.
cat chain.pem rsa.pem >server.pem
cat chain.pem rsa.locked.pem >server.locked.pem

# So short a key is below every security level but 0.
quietly openssl req -x509 -config ca.conf -newkey rsa:512 -nodes -keyout weak.key.pem -subj /CN=weak \
    -days 3650 -out weak.pem

quietly openssl req -new -config ca.conf -key rsa.pem -subj /CN=plain -out plain.req.pem
quietly openssl req -new -config ca.conf -key rsa.pem -subj /CN=named -reqexts names -out named.req.pem
openssl req -config ca.conf -in named.req.pem -outform DER -out named.req.der

: >index.txt
echo 01 >crlnumber.txt
quietly openssl ca -config ca.conf -gencrl -cert root.pem -keyfile root.key.pem -out root.crl.pem
openssl crl -in root.crl.pem -outform DER -out root.crl.der

# Damage that leaves the frame of the block whole: a line is lost from the middle.
sed 5d rsa.pem >damaged.pem
cat damaged.pem rsa.traditional.der >damaged_then_der.pem
cat rsa.traditional.der damaged.pem >der_then_damaged.pem
{ cat rsa.traditional.der; echo; cat damaged.pem; } >der_newline_damaged.pem
cat rsa.traditional.der root.pem >der_then_certificate.pem
head -n 5 rsa.pem >cut_short.pem

# A block that says that it is locked, as only those of keys should be: locked_block KIND NAME
locked_block() {
    cat >"$2" <<PEM
-----BEGIN $1-----
Proc-Type: 4,ENCRYPTED
DEK-Info: AES-128-CBC,000102030405060708090A0B0C0D0E0F

AAAAAAAAAAAAAAAAAAAAAA==
-----END $1-----
PEM
}
locked_block CERTIFICATE locked.pem
locked_block 'CERTIFICATE REQUEST' locked.req.pem
locked_block 'X509 CRL' locked.crl.pem

# Between DER and PEM: the block begins a line, or it does not. (DER ends in any byte.)
printf '\n' >newline
printf '\nx' >letter
: >empty
