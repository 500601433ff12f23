// SPDX-License-Identifier: Apache-2.0
// RSA keys from files.
#ifndef TARNUTIL_TOOLS_KEYS_H
#define TARNUTIL_TOOLS_KEYS_H

#include <openssl/rsa.h>

#include <memory>
#include <string>

#include "openssl.h"

namespace tarnutil_command {

using RsaPtr = std::unique_ptr<RSA, tarnutil::FreeWith<RSA_free>>;

// Each throws Unusable if the file holds no such key. PEM or DER is found out.

// A private key; the password is the first line of `passwordFile`, or none if that is empty.
RsaPtr privateKey(const std::string& file, const std::string& passwordFile);

RsaPtr publicKey(const std::string& file);

// The public key of a certificate.
RsaPtr certifiedKey(const std::string& file);

}  // namespace tarnutil_command
#endif  // TARNUTIL_TOOLS_KEYS_H
