// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/cert.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "openssl.h"
#include "pem_block.h"

using tarnutil::BioPtr;
using tarnutil::EvpPkeyPtr;
using tarnutil::SslCtxPtr;
using tarnutil::X509Ptr;

namespace {

enum Format { kUnknown = 0, kPem = 1, kDer = 2 };

// How one kind of object is read in each format.
template <class Object>
struct Readers {
    Object* (*pem)(BIO*, Object**, pem_password_cb*, void*);
    Object* (*der)(BIO*, Object**);
};

constexpr Readers<X509> kCertificate = {PEM_read_bio_X509, d2i_X509_bio};
constexpr Readers<X509_REQ> kRequest = {PEM_read_bio_X509_REQ, d2i_X509_REQ_bio};
constexpr Readers<X509_CRL> kCrl = {PEM_read_bio_X509_CRL, d2i_X509_CRL_bio};

// Forgets the attempt at PEM, in the error queue and in the position of `bio`.
void start_over(BIO* bio) {
    ERR_clear_error();
    (void)BIO_reset(bio);
}

// Objects that are no secrets need no password. A stranger's block may say that it is locked all
// the same: OpenSSL would then ask the terminal, and wait there. It takes a text instead of asking.
template <class Object>
Object* read_pem(BIO* bio, const Readers<Object>& readers) {
    char no_password[] = "";
    return readers.pem(bio, nullptr, /*callback=*/nullptr, no_password);
}

template <class Object>
Object* detect(BIO* bio, int* format, const Readers<Object>& readers) {
    if (Object* object = read_pem(bio, readers)) {
        *format = kPem;
        return object;
    }
    start_over(bio);
    Object* object = readers.der(bio, nullptr);
    if (object != nullptr) *format = kDer;
    return object;
}

template <class Object>
Object* load(BIO* bio, int* format, const Readers<Object>& readers) {
    int found = kUnknown;
    if (format == nullptr) format = &found;
    switch (*format) {
        case kUnknown:
            return detect(bio, format, readers);
        case kPem:
            return read_pem(bio, readers);
        default:
            return readers.der(bio, nullptr);
    }
}

BioPtr open_file(const char* path) { return BioPtr(BIO_new_file(path, "r")); }

// What `read` makes of the file; null if it cannot be opened.
template <class Read>
auto load_file(const char* path, Read read) -> decltype(read(nullptr)) {
    const BioPtr file = open_file(path);
    return file == nullptr ? nullptr : read(file.get());
}

}  // namespace

static int tarnssl_pw_cb(char* buf, int size, int /*rwflag*/, void* password) {
    if (password == nullptr) return 0;
    const char* const text = static_cast<const char*>(password);
    const std::size_t length = std::min(static_cast<std::size_t>(size), std::strlen(text));
    std::copy_n(text, length, buf);  // no terminating zero
    return static_cast<int>(length);
}

X509* TARNSSL_load_X509_bio(BIO* bio, int* format) { return load(bio, format, kCertificate); }

X509* TARNSSL_load_X509_file(const char* path) {
    return load_file(path, [](BIO* bio) { return TARNSSL_load_X509_bio(bio, nullptr); });
}

X509* TARNSSL_load_X509_buf(const void* data, int length, int* format) {
    const BioPtr bytes(BIO_new_mem_buf(const_cast<void*>(data), length));
    return bytes == nullptr ? nullptr : TARNSSL_load_X509_bio(bytes.get(), format);
}

X509_REQ* TARNSSL_load_X509_REQ_bio(BIO* bio, int* format) { return load(bio, format, kRequest); }

X509_REQ* TARNSSL_load_X509_REQ_file(const char* path) {
    return load_file(path, [](BIO* bio) { return TARNSSL_load_X509_REQ_bio(bio, nullptr); });
}

X509_CRL* TARNSSL_load_X509_CRL_bio(BIO* bio) { return load(bio, nullptr, kCrl); }

X509_CRL* TARNSSL_load_X509_CRL_file(const char* path) {
    return load_file(path, TARNSSL_load_X509_CRL_bio);
}

EVP_PKEY* TARNSSL_load_PrivateKey_bio(BIO* bio, void* password) {
    const int start = static_cast<int>(BIO_tell(bio));
    if (EVP_PKEY* key = PEM_read_bio_PrivateKey(bio, nullptr, tarnssl_pw_cb, password)) return key;
    if (!tarnutil::rewoundToLookForPem(bio, start)) return nullptr;
    if (tarnutil::holdsPemBlock(bio)) return nullptr;  // damaged or locked
    start_over(bio);
    return d2i_PrivateKey_bio(bio, nullptr);
}

EVP_PKEY* TARNSSL_load_PrivateKey_file(const char* path, void* password) {
    return load_file(path, [=](BIO* bio) { return TARNSSL_load_PrivateKey_bio(bio, password); });
}

RSA* TARNSSL_load_RSA_bio(BIO* bio, void* password) {
    const EvpPkeyPtr key(TARNSSL_load_PrivateKey_bio(bio, password));
    return key == nullptr ? nullptr : EVP_PKEY_get1_RSA(key.get());
}

RSA* TARNSSL_load_RSA_file(const char* path, void* password) {
    return load_file(path, [=](BIO* bio) { return TARNSSL_load_RSA_bio(bio, password); });
}

int TARNSSL_CTX_use_certificate_file(SSL_CTX* ctx, const char* path) {
    const X509Ptr cert(TARNSSL_load_X509_file(path));
    return cert == nullptr ? 0 : SSL_CTX_use_certificate(ctx, cert.get());
}

int TARNSSL_CTX_use_PrivateKey_file(SSL_CTX* ctx, const char* path, void* password) {
    const EvpPkeyPtr key(TARNSSL_load_PrivateKey_file(path, password));
    return key == nullptr ? 0 : SSL_CTX_use_PrivateKey(ctx, key.get());
}

namespace {

// What a chain file can fail with before its first certificate is there. The numbers are part of
// the interface.
//
// Quirk: three different failures share one reason; only the line tells them apart.
// Pinned by ChainTest.FailuresBeforeTheFirstCertificateAreQueuedWithTheirLine.
enum ChainFailure { kNoFileBio = 341, kCannotOpen = 346, kNoFirstCertificate = 352 };
[[maybe_unused]] constexpr int kUseCertificateChainFile = 220;  // OpenSSL 3 drops it
constexpr int kBufferLibrary = 7;  // ERR_R_BUF_LIB is another number from OpenSSL 3 on

int refuse_chain(ChainFailure failure) {
    ERR_put_error(ERR_LIB_SSL, kUseCertificateChainFile, kBufferLibrary, "util/cert.cpp", failure);
    return 0;
}

// Adds all certificates that follow in `file` to the context's extra chain, until none can be read.
bool add_extra_chain(SSL_CTX* ctx, BIO* file, int* format) {
    while (X509* cert = TARNSSL_load_X509_bio(file, format)) {
        X509Ptr owner(cert);
        if (SSL_CTX_add_extra_chain_cert(ctx, cert) == 0) return false;
        (void)owner.release();  // the context's, from here on
    }
    return true;
}

// A file of PEM blocks that came to its end leaves this error, and no other.
bool ended_after_pem() {
    const unsigned long error = ERR_peek_last_error();
    return ERR_GET_LIB(error) == ERR_LIB_PEM && ERR_GET_REASON(error) == PEM_R_NO_START_LINE;
}

}  // namespace

int TARNSSL_CTX_use_certificate_chain_file(SSL_CTX* ctx, const char* path) {
    int format = kUnknown;
    ERR_clear_error();
    const BioPtr file(BIO_new(BIO_s_file()));
    if (file == nullptr) return refuse_chain(kNoFileBio);
    if (BIO_read_filename(file.get(), const_cast<char*>(path)) < 1)
        return refuse_chain(kCannotOpen);
    const X509Ptr leaf(TARNSSL_load_X509_bio(file.get(), &format));
    if (leaf == nullptr) return refuse_chain(kNoFirstCertificate);

    const int used = SSL_CTX_use_certificate(ctx, leaf.get());
    if (ERR_peek_error() != 0 || used == 0) return 0;
    SSL_CTX_clear_extra_chain_certs(ctx);
    if (!add_extra_chain(ctx, file.get(), &format)) return 0;
    if (!ended_after_pem()) return 0;
    ERR_clear_error();
    return used;
}

int TARNSSL_verify_issuer(X509* issuer, X509* subject) {
    if (issuer == nullptr || subject == nullptr) return 0;
    if (X509_check_issued(issuer, subject) != X509_V_OK) return 0;
    const EvpPkeyPtr key(X509_get_pubkey(issuer));
    return X509_verify(subject, key.get()) == 1 ? 1 : 0;
}

int TARNSSL_cert_contain_issuer_of(const char* path, X509* subject) {
    const BioPtr file = open_file(path);
    if (subject == nullptr || file == nullptr) return -1;
    int format = kUnknown;
    while (X509* cert = TARNSSL_load_X509_bio(file.get(), &format)) {
        const X509Ptr candidate(cert);
        if (TARNSSL_verify_issuer(candidate.get(), subject) == 1) return 1;
    }
    return 0;
}

namespace {

// Whether the extra chain of `ctx` holds the issuer of `leaf`.
bool extra_chain_issues(SSL_CTX* ctx, X509* leaf) {
    STACK_OF(X509)* chain = nullptr;
    SSL_CTX_get_extra_chain_certs_only(ctx, &chain);
    for (int i = 0; i < sk_X509_num(chain); ++i) {
        if (TARNSSL_verify_issuer(sk_X509_value(chain, i), leaf) != 0) return true;
    }
    return false;
}

}  // namespace

int TARNSSL_cert_contain_issuer(const char* path) {
    const SslCtxPtr ctx(SSL_CTX_new(SSLv23_method()));  // only a container for the chain
    const X509Ptr leaf(TARNSSL_load_X509_file(path));
    if (leaf == nullptr) return -1;
    if (TARNSSL_CTX_use_certificate_chain_file(ctx.get(), path) == 0) return -1;
    return extra_chain_issues(ctx.get(), leaf.get()) ? 1 : 0;
}

namespace {

constexpr char kHttp[] = {'h', 't', 't', 'p', ':', '/', '/'};
constexpr int kHttpLength = sizeof kHttp;

// The URI of a name, if it is one and at least as long as "http://"; otherwise null.
ASN1_IA5STRING* long_enough_uri(const GENERAL_NAME* name) {
    if (name->type != GEN_URI) return nullptr;
    ASN1_IA5STRING* const uri = name->d.uniformResourceIdentifier;
    return uri != nullptr && ASN1_STRING_length(uri) >= kHttpLength ? uri : nullptr;
}

// `uri` is at least as long as "http://".
bool is_plain_http(const ASN1_IA5STRING* uri) {
    return std::memcmp(ASN1_STRING_get0_data(uri), kHttp, kHttpLength) == 0;
}

// The first plain HTTP address of an OCSP responder, or null.
ASN1_IA5STRING* http_responder(const AUTHORITY_INFO_ACCESS* descriptions) {
    for (int i = 0; i < sk_ACCESS_DESCRIPTION_num(descriptions); ++i) {
        const ACCESS_DESCRIPTION* const description = sk_ACCESS_DESCRIPTION_value(descriptions, i);
        if (OBJ_obj2nid(description->method) != NID_ad_OCSP) continue;
        ASN1_IA5STRING* const uri = long_enough_uri(description->location);
        if (uri != nullptr && is_plain_http(uri)) return uri;
    }
    return nullptr;
}

}  // namespace

ASN1_IA5STRING* TARNSSL_get_ocsp_resp_url_from_aia(X509* cert, AUTHORITY_INFO_ACCESS** out) {
    int critical = 0;
    int index = -1;
    while (critical == 0) {  // 1 is an extension that may not be ignored, -1 the end of them
        *out = static_cast<AUTHORITY_INFO_ACCESS*>(
            X509_get_ext_d2i(cert, NID_info_access, &critical, &index));
        if (*out == nullptr) continue;
        ASN1_IA5STRING* const url = critical == 0 ? http_responder(*out) : nullptr;
        if (url != nullptr) return url;
        sk_ACCESS_DESCRIPTION_pop_free(*out, ACCESS_DESCRIPTION_free);
    }
    return nullptr;
}

int TARNSSL_X509_to_fingerprint_str(X509* cert, char* buffer, size_t size) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (X509_digest(cert, EVP_sha256(), digest, &length) == 0) return -1;
    if (length == 0) return 1;

    static const char prefix[] = {'S', 'H', 'A', '2', '5', '6', '/'};
    static const char digits[] = "0123456789ABCDEF";
    char text[sizeof prefix + sizeof digest * 3];
    char* end = std::copy(std::begin(prefix), std::end(prefix), text);
    for (unsigned i = 0; i < length; ++i) {
        *end++ = digits[digest[i] >> 4];
        *end++ = digits[digest[i] & 0xF];
        *end++ = ':';
    }
    end[-1] = '\0';
    const int written = std::snprintf(buffer, size, "%s", text);
    return written < 0 || static_cast<size_t>(written) >= size ? -1 : 1;
}

namespace {

// The address to fetch a revocation list from, of one distribution point; null if it has none.
//
// Quirk: without a plain HTTP address the last of the others is taken, be it LDAP.
// Pinned by CertCrlTest.AnLdapAddressIsReturnedWhenThereIsNoOther.
ASN1_IA5STRING* crl_address(const DIST_POINT* point) {
    if (point->distpoint == nullptr || point->distpoint->type != 0) return nullptr;
    const GENERAL_NAMES* const names = point->distpoint->name.fullname;
    ASN1_IA5STRING* last = nullptr;
    for (int i = 0; i < sk_GENERAL_NAME_num(names); ++i) {
        ASN1_IA5STRING* const uri = long_enough_uri(sk_GENERAL_NAME_value(names, i));
        if (uri == nullptr) continue;
        if (is_plain_http(uri)) return uri;
        last = uri;
    }
    return last;
}

}  // namespace

// Quirk: the decoded list is never released, as the result lives in it.
// Pinned by CertCrlTest.TheAddressOutlivesItsCertificate.
unsigned char* TARNSSL_X509_get_first_crl_dp(X509* cert) {
    const auto* const points = static_cast<CRL_DIST_POINTS*>(
        X509_get_ext_d2i(cert, NID_crl_distribution_points, nullptr, nullptr));
    for (int i = 0; i < sk_DIST_POINT_num(points); ++i) {
        ASN1_IA5STRING* const uri = crl_address(sk_DIST_POINT_value(points, i));
        if (uri != nullptr) return const_cast<unsigned char*>(ASN1_STRING_get0_data(uri));
    }
    return nullptr;
}

// Prints the first line of an extension into `buffer`, which stays as it is if nothing is printed.
static void TARNSSL_ext_to_str(X509_EXTENSION* extension, char* buffer, int size) {
    const BioPtr text(BIO_new(BIO_s_mem()));
    if (text == nullptr) return;
    (void)X509V3_EXT_print(text.get(), extension, /*flag=*/0, /*indent=*/0);
    const int length = BIO_gets(text.get(), buffer, size - 1);
    if (length > 0) buffer[length] = '\0';
}

int TARNSSL_X509_get_SANs_str(X509* cert, char* buffer, int size) {
    buffer[0] = '\0';
    const int index = X509_get_ext_by_NID(cert, NID_subject_alt_name, -1);
    if (index < 0) return index;
    TARNSSL_ext_to_str(X509_get_ext(cert, index), buffer, size);
    return 0;
}

void TARNSSL_X509_REQ_get_SANs_str(X509_REQ* req, char* buffer, int size) {
    buffer[0] = '\0';
    const tarnutil::ExtensionsPtr extensions(X509_REQ_get_extensions(req));
    if (extensions == nullptr) return;
    const int index = X509v3_get_ext_by_NID(extensions.get(), NID_subject_alt_name, -1);
    if (index < 0) return;
    TARNSSL_ext_to_str(X509v3_get_ext(extensions.get(), index), buffer, size);
}
