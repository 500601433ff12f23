// SPDX-License-Identifier: Apache-2.0
// The files that make.sh made, and owners for what is loaded from them.
#ifndef TARNUTIL_TESTS_CERTS_MATERIAL_H
#define TARNUTIL_TESTS_CERTS_MATERIAL_H

#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "openssl.h"

namespace tarnutil_test {

using tarnutil::BioPtr;
using tarnutil::EvpPkeyPtr;
using tarnutil::FreeWith;
using tarnutil::SslCtxPtr;
using tarnutil::X509Ptr;
using CrlPtr = std::unique_ptr<X509_CRL, FreeWith<X509_CRL_free>>;
using RequestPtr = std::unique_ptr<X509_REQ, FreeWith<X509_REQ_free>>;
using RsaPtr = std::unique_ptr<RSA, FreeWith<RSA_free>>;

// The path of a file that make.sh made.
std::string material(const std::string& name);

// Reads the certificate in the file by OpenSSL alone; fails the test if it cannot.
X509Ptr certificate(const std::string& name);

// A BIO over `bytes`, which have to outlive it.
BioPtr reading(const std::string& bytes);

// What the error queue holds, oldest first, as "library:reason", with " line n" behind what the
// library itself queued; empties it.
std::vector<std::string> drainErrors();

// Runs `run` until, with OpenSSL's caches filled, it holds nothing more; fails the test if it
// always does.
void expectNothingHeld(const std::function<void()>& run);

// The library keeps what TARNSSL_X509_get_first_crl_dp decoded: not a leak to look for.
const unsigned char* firstCrlBytes(const X509Ptr& cert);
// The text of that address, read when the certificate is gone; empty if there is none.
std::string firstCrlAddress(X509Ptr cert);

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_CERTS_MATERIAL_H
