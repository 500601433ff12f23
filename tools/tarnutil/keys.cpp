// SPDX-License-Identifier: Apache-2.0
#include "keys.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <tarnutil/cert.h>

#include <fstream>

#include "commands.h"

namespace tarnutil_command {
namespace {

struct FreeOpenssl {
    void operator()(BIO* bio) const { BIO_vfree(bio); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
};
template <class Object>
using Owner = std::unique_ptr<Object, FreeOpenssl>;

// The forms in which a file may hold a public key.
RSA* (*const kPublicKeyReaders[])(BIO*) = {
    [](BIO* bio) { return PEM_read_bio_RSA_PUBKEY(bio, nullptr, nullptr, nullptr); },
    [](BIO* bio) { return PEM_read_bio_RSAPublicKey(bio, nullptr, nullptr, nullptr); },
    [](BIO* bio) { return d2i_RSA_PUBKEY_bio(bio, nullptr); },
};

std::string firstLine(const std::string& file) {
    std::ifstream in(file);
    std::string line;
    if (!std::getline(in, line)) throw Unusable("cannot read a password from " + file);
    return line;
}

RsaPtr orUnusable(RSA* key, const std::string& what, const std::string& file) {
    if (key == nullptr) throw Unusable("cannot read " + what + " from " + file);
    return RsaPtr(key);
}

}  // namespace

RsaPtr privateKey(const std::string& file, const std::string& passwordFile) {
    std::string password;
    if (!passwordFile.empty()) password = firstLine(passwordFile);
    RSA* const key =
        TARNSSL_load_RSA_file(file.c_str(), passwordFile.empty() ? nullptr : password.data());
    return orUnusable(key, "an RSA private key", file);
}

RsaPtr publicKey(const std::string& file) {
    for (const auto read : kPublicKeyReaders) {
        const Owner<BIO> bio(BIO_new_file(file.c_str(), "rb"));
        if (RSA* const key = bio ? read(bio.get()) : nullptr) return RsaPtr(key);
    }
    return orUnusable(nullptr, "an RSA public key", file);
}

RsaPtr certifiedKey(const std::string& file) {
    const Owner<X509> certificate(TARNSSL_load_X509_file(file.c_str()));
    const Owner<EVP_PKEY> key(certificate ? X509_get_pubkey(certificate.get()) : nullptr);
    return orUnusable(key ? EVP_PKEY_get1_RSA(key.get()) : nullptr, "a certificate with an RSA key",
                      file);
}

}  // namespace tarnutil_command
