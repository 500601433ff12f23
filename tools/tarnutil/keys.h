// SPDX-License-Identifier: Apache-2.0
// RSA keys from files.
#ifndef TARNUTIL_TOOLS_KEYS_H
#define TARNUTIL_TOOLS_KEYS_H

#include <openssl/rsa.h>

#include <memory>
#include <string>

namespace tarnutil_command {

struct FreeRsa {
    void operator()(RSA* key) const { RSA_free(key); }
};
using RsaPtr = std::unique_ptr<RSA, FreeRsa>;

// Each throws Unusable if the file holds no such key. PEM or DER is found out.

// A private key; the password is the first line of `passwordFile`, or none if that is empty.
RsaPtr privateKey(const std::string& file, const std::string& passwordFile);

RsaPtr publicKey(const std::string& file);

// The public key of a certificate.
RsaPtr certifiedKey(const std::string& file);

}  // namespace tarnutil_command
#endif  // TARNUTIL_TOOLS_KEYS_H
