// SPDX-License-Identifier: Apache-2.0
// Owners of OpenSSL objects, and what an older OpenSSL lacks under the name that it has upstream.
// The only file that asks for OpenSSL's version.
#ifndef TARNUTIL_UTIL_OPENSSL_H
#define TARNUTIL_UTIL_OPENSSL_H

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <memory>

namespace tarnutil {

// A deleter that calls `Free`, whatever that returns.
template <auto Free>
struct FreeWith {
    template <class Object>
    void operator()(Object* object) const noexcept {
        (void)Free(object);
    }
};

using BioPtr = std::unique_ptr<BIO, FreeWith<BIO_vfree>>;
using EvpPkeyPtr = std::unique_ptr<EVP_PKEY, FreeWith<EVP_PKEY_free>>;

// An owner's function, for a list whose members are freed with it.
inline void freeExtensions(STACK_OF(X509_EXTENSION) * extensions) {
    sk_X509_EXTENSION_pop_free(extensions, X509_EXTENSION_free);
}
using ExtensionsPtr = std::unique_ptr<STACK_OF(X509_EXTENSION), FreeWith<freeExtensions>>;
using SslCtxPtr = std::unique_ptr<SSL_CTX, FreeWith<SSL_CTX_free>>;
using X509Ptr = std::unique_ptr<X509, FreeWith<X509_free>>;

// After PEM_read_bio_PrivateKey failed on a `bio` that stood at `start`: can the input still be
// without any PEM block? If so, `bio` is back where the bytes can be looked at.
#if OPENSSL_VERSION_NUMBER < 0x30000000L  // goes away with OpenSSL 1
inline bool rewoundToLookForPem(BIO* bio, int /*start*/) {
    if (ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE) return false;
    (void)BIO_reset(bio);
    return true;
}
#else  // the decoders of 3 queue the same error for DER, for damaged PEM and for no key at all
inline bool rewoundToLookForPem(BIO* bio, int start) {
    return start >= 0 && BIO_seek(bio, start) >= 0;
}
#endif

}  // namespace tarnutil

#if OPENSSL_VERSION_NUMBER < 0x10100000L  // goes away with OpenSSL 1.0
inline const unsigned char* ASN1_STRING_get0_data(const ASN1_STRING* text) {
    return ASN1_STRING_data(const_cast<ASN1_STRING*>(text));
}
#endif

#endif  // TARNUTIL_UTIL_OPENSSL_H
