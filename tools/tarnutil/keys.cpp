// SPDX-License-Identifier: Apache-2.0
#include "keys.h"

#include <tarnutil/cert.h>

#include <fstream>

#include "commands.h"

namespace tarnutil_command {
namespace {

using tarnutil::BioPtr;
using tarnutil::EvpPkeyPtr;
using tarnutil::X509Ptr;

// No password: told this one, OpenSSL does not ask the terminal for that of a locked block.
char noPassword[] = "";

// The forms in which a file may hold a public key.
RSA* (*const kPublicKeyReaders[])(BIO*) = {
    [](BIO* bio) { return PEM_read_bio_RSA_PUBKEY(bio, nullptr, nullptr, noPassword); },
    [](BIO* bio) { return PEM_read_bio_RSAPublicKey(bio, nullptr, nullptr, noPassword); },
    [](BIO* bio) { return d2i_RSA_PUBKEY_bio(bio, nullptr); },
};

std::string firstLine(const std::string& file) {
    std::ifstream in(file);
    std::string line;
    if (!std::getline(in, line)) throw Unusable("cannot read a password from " + file);
    return line;
}

// The whole of a file, which is read once and may be a pipe; "" if it cannot be read or is larger
// than any key.
std::string contentOrNothing(const std::string& file) {
    constexpr std::size_t kLargest = 1 << 20;
    std::ifstream in(file, std::ios::binary);
    std::string content(kLargest + 1, '\0');
    in.read(content.data(), static_cast<std::streamsize>(content.size()));
    content.resize(static_cast<std::size_t>(in.gcount()));
    return content.size() > kLargest ? "" : content;
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
    const std::string content = contentOrNothing(file);
    for (const auto read : kPublicKeyReaders) {
        const BioPtr bio(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
        if (RSA* const key = bio ? read(bio.get()) : nullptr) return RsaPtr(key);
    }
    return orUnusable(nullptr, "an RSA public key", file);
}

RsaPtr certifiedKey(const std::string& file) {
    const X509Ptr certificate(TARNSSL_load_X509_file(file.c_str()));
    const EvpPkeyPtr key(certificate ? X509_get_pubkey(certificate.get()) : nullptr);
    return orUnusable(key ? EVP_PKEY_get1_RSA(key.get()) : nullptr, "a certificate with an RSA key",
                      file);
}

}  // namespace tarnutil_command
