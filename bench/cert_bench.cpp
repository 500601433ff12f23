// SPDX-License-Identifier: Apache-2.0
// Loading certificates, keys and chains, and asking about them, beside the OpenSSL calls that a
// user would make instead.
#include <Poco/Crypto/X509Certificate.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>

#include <tarnutil/cert.h>

#include "bench.h"

namespace {

struct Free {
    void operator()(BIO* bio) const { (void)BIO_free(bio); }
    void operator()(X509* cert) const { X509_free(cert); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(SSL_CTX* ctx) const { SSL_CTX_free(ctx); }
};
template <class Object>
using Owned = std::unique_ptr<Object, Free>;

std::string material(const std::string& name) { return TARNUTIL_BENCH_MATERIAL "/" + name; }

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) std::abort();
    return {std::istreambuf_iterator<char>(file), {}};
}

Owned<BIO> over(const std::string& bytes) {
    return Owned<BIO>(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

Owned<X509> certificate(const std::string& name) {
    const std::string pem = contentOf(material(name));
    const Owned<BIO> bio = over(pem);
    return Owned<X509>(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
}

template <class Work>
void row(const std::string& name, Work work) {
    tarnutil_bench::add("cert/" + name, [work](benchmark::State& state) {
        for (auto _ : state) {
            if (!work()) state.SkipWithError("failed");
        }
    });
}

// A row whose work reads the file from memory.
template <class Read>
void readingRow(const std::string& name, const std::string& file, Read read) {
    const std::string bytes = contentOf(file);
    row(name, [bytes, read] {
        const Owned<BIO> bio = over(bytes);
        return read(bio.get());
    });
}

X509* detected(BIO* bio) { return TARNSSL_load_X509_bio(bio, nullptr); }
X509* fromPem(BIO* bio) { return PEM_read_bio_X509(bio, nullptr, nullptr, nullptr); }
X509* fromDer(BIO* bio) { return d2i_X509_bio(bio, nullptr); }
EVP_PKEY* anyKey(BIO* bio) { return TARNSSL_load_PrivateKey_bio(bio, nullptr); }
EVP_PKEY* keyFromPem(BIO* bio) { return PEM_read_bio_PrivateKey(bio, nullptr, nullptr, nullptr); }

template <class Object, Object* Read(BIO*)>
bool loads(BIO* bio) {
    return Owned<Object>(Read(bio)) != nullptr;
}

void addLoading() {
    const std::string pem = material("leaf.pem");
    const std::string der = material("leaf.der");
    readingRow("load_pem/1/tarnutil", pem, loads<X509, detected>);
    readingRow("load_pem/1/PEM_read_bio_X509", pem, loads<X509, fromPem>);
    const std::string text = contentOf(pem);
    row("load_pem/1/Poco::Crypto::X509Certificate", [text] {
        std::istringstream stream(text);
        return Poco::Crypto::X509Certificate(stream).certificate() != nullptr;
    });

    // In the format asked for, as the second and later certificates of a file are read.
    readingRow("load_der/1/tarnutil", der, [](BIO* bio) {
        int format = 2;
        return Owned<X509>(TARNSSL_load_X509_bio(bio, &format)) != nullptr;
    });
    readingRow("load_der/1/d2i_X509_bio", der, loads<X509, fromDer>);
    // With the attempt at PEM in front, which has to look for a start line in all of the input.
    readingRow("detect_der/1/tarnutil", der, loads<X509, detected>);
    readingRow("detect_der/1/d2i_X509_bio", der, loads<X509, fromDer>);

    for (const char* name : {"rsa", "ec"}) {
        const std::string key = material(std::string(name) + ".pem");
        const std::string group = std::string("load_key/") + name;
        readingRow(group + "/tarnutil", key, loads<EVP_PKEY, anyKey>);
        readingRow(group + "/PEM_read_bio_PrivateKey", key, loads<EVP_PKEY, keyFromPem>);
    }
}

template <X509* Read(BIO*)>
bool readsAll(BIO* bio) {
    int count = 0;
    while (Owned<X509>(Read(bio)) != nullptr) ++count;
    ERR_clear_error();
    return count > 50;
}

void addBundle() {
    const std::string bundle = "/etc/ssl/certs/ca-certificates.crt";
    readingRow("bundle/all_roots/tarnutil", bundle, [](BIO* bio) {
        int format = 0;
        int count = 0;
        while (Owned<X509>(TARNSSL_load_X509_bio(bio, &format)) != nullptr) ++count;
        ERR_clear_error();
        return count > 50;
    });
    readingRow("bundle/all_roots/PEM_read_bio_X509", bundle, readsAll<fromPem>);
}

template <int Use(SSL_CTX*, const char*)>
void chainRow(const char* who) {
    const std::string path = material("chain.pem");
    const std::shared_ptr<SSL_CTX> ctx(SSL_CTX_new(SSLv23_method()), SSL_CTX_free);
    row(std::string("chain/3/") + who, [path, ctx] { return Use(ctx.get(), path.c_str()) == 1; });
}

void addAsking() {
    const std::shared_ptr<X509> issuer(certificate("issuing.pem").release(), X509_free);
    const std::shared_ptr<X509> leaf(certificate("leaf.pem").release(), X509_free);
    row("verify_issuer/1/tarnutil",
        [issuer, leaf] { return TARNSSL_verify_issuer(issuer.get(), leaf.get()) == 1; });
    row("verify_issuer/1/X509_verify", [issuer, leaf] {
        const Owned<EVP_PKEY> key(X509_get_pubkey(issuer.get()));
        return X509_verify(leaf.get(), key.get()) == 1;
    });
    row("fingerprint/1/tarnutil", [leaf] {
        char text[103];
        return TARNSSL_X509_to_fingerprint_str(leaf.get(), text, sizeof text) == 1;
    });
    row("fingerprint/1/X509_digest", [leaf] {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned length = 0;
        return X509_digest(leaf.get(), EVP_sha256(), digest, &length) == 1;
    });
}

void addAll() {
    addLoading();
    addBundle();
    chainRow<TARNSSL_CTX_use_certificate_chain_file>("tarnutil");
    chainRow<SSL_CTX_use_certificate_chain_file>("SSL_CTX_use_certificate_chain_file");
    addAsking();
}

const tarnutil_bench::Added added(addAll);

}  // namespace
