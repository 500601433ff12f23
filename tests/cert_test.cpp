// SPDX-License-Identifier: Apache-2.0
// Certificates, requests and revocation lists: what loads in which format. certs/ holds a file for
// each other subject.
#include <gmock/gmock.h>
#include <tarnutil/cert.h>

#include <thread>

#include "certs/material.h"
#include "scratch_dir.h"

namespace tarnutil_test {
namespace {

using testing::IsEmpty;
using testing::Not;

class CertTest : public testing::Test {
protected:
    CertTest() { ERR_clear_error(); }
    ~CertTest() override { ERR_clear_error(); }
};

// A reader of one kind of object, told only whether something loaded.
using Reader = bool (*)(BIO* bio, int* format);

bool readsCertificate(BIO* bio, int* format) {
    return X509Ptr(TARNSSL_load_X509_bio(bio, format)) != nullptr;
}
bool readsRequest(BIO* bio, int* format) {
    return RequestPtr(TARNSSL_load_X509_REQ_bio(bio, format)) != nullptr;
}
bool readsCrl(BIO* bio, int* /*format*/) {
    return CrlPtr(TARNSSL_load_X509_CRL_bio(bio)) != nullptr;
}

constexpr int kNoPointer = -1;

struct FormatCase {
    const char* says;
    Reader reader;
    const char* file;
    int asked;  // kNoPointer: a null pointer instead of an indicator
    bool loads;
    int told;
};
// clang-format off
const FormatCase kFormatCases[] = {
    // says                              reader            file             asked       loads  told
    {"PEM is found out",                 readsCertificate, "leaf.pem",      0,          true,  1},
    {"DER is found out",                 readsCertificate, "leaf.der",      0,          true,  2},
    {"neither is told as unknown",       readsCertificate, "rsa.pem",       0,          false, 0},
    {"nothing is told as unknown",       readsCertificate, "empty",         0,          false, 0},
    {"PEM as asked",                     readsCertificate, "leaf.pem",      1,          true,  1},
    {"DER is not PEM",                   readsCertificate, "leaf.der",      1,          false, 1},
    {"DER as asked",                     readsCertificate, "leaf.der",      2,          true,  2},
    {"PEM is not DER",                   readsCertificate, "leaf.pem",      2,          false, 2},
    {"any other number is DER",          readsCertificate, "leaf.der",      7,          true,  7},
    {"a negative number is DER",         readsCertificate, "leaf.der",      -2,         true,  -2},
    {"any other number is not PEM",      readsCertificate, "leaf.pem",      7,          false, 7},
    {"PEM without an indicator",         readsCertificate, "leaf.pem",      kNoPointer, true,  kNoPointer},
    {"DER without an indicator",         readsCertificate, "leaf.der",      kNoPointer, true,  kNoPointer},
    {"a request in PEM",                 readsRequest,     "named.req.pem", 0,          true,  1},
    {"a request in DER",                 readsRequest,     "named.req.der", 0,          true,  2},
    {"a request in DER, asked as PEM",   readsRequest,     "named.req.der", 1,          false, 1},
    {"a request in DER, asked as DER",   readsRequest,     "named.req.der", 2,          true,  2},
    {"a request without an indicator",   readsRequest,     "named.req.der", kNoPointer, true,  kNoPointer},
    {"a certificate is no request",      readsRequest,     "leaf.der",      0,          false, 0},
    {"a revocation list in PEM",         readsCrl,         "root.crl.pem",  kNoPointer, true,  kNoPointer},
    {"a revocation list in DER",         readsCrl,         "root.crl.der",  kNoPointer, true,  kNoPointer},
    {"a certificate is no such list",    readsCrl,         "leaf.der",      kNoPointer, false, kNoPointer},
};
// clang-format on

TEST_F(CertTest, FormatsAreFoundOutOrObeyed) {
    for (const FormatCase& row : kFormatCases) {
        const std::string bytes = readFile(material(row.file));
        const BioPtr bio = reading(bytes);
        int format = row.asked;
        EXPECT_EQ(row.reader(bio.get(), row.asked == kNoPointer ? nullptr : &format), row.loads)
            << row.says;
        EXPECT_EQ(format, row.told) << row.says;
    }
}

TEST_F(CertTest, FilesLoadInBothFormats) {
    for (const char* name : {"leaf.pem", "leaf.der"}) {
        EXPECT_NE(X509Ptr(TARNSSL_load_X509_file(material(name).c_str())), nullptr) << name;
    }
    for (const char* name : {"named.req.pem", "named.req.der"}) {
        EXPECT_NE(RequestPtr(TARNSSL_load_X509_REQ_file(material(name).c_str())), nullptr) << name;
    }
    for (const char* name : {"root.crl.pem", "root.crl.der"}) {
        EXPECT_NE(CrlPtr(TARNSSL_load_X509_CRL_file(material(name).c_str())), nullptr) << name;
    }
}

TEST_F(CertTest, MissingFilesAreNull) {
    EXPECT_EQ(TARNSSL_load_X509_file("/nonexistent/file"), nullptr);
    EXPECT_EQ(TARNSSL_load_X509_REQ_file("/nonexistent/file"), nullptr);
    EXPECT_EQ(TARNSSL_load_X509_CRL_file("/nonexistent/file"), nullptr);
}

TEST_F(CertTest, OneIndicatorReadsSeveralFromOneBio) {
    for (const char* name : {"chain.pem", "chain.der"}) {
        const std::string bytes = readFile(material(name));
        const BioPtr bio = reading(bytes);
        int format = 0;
        int count = 0;
        while (readsCertificate(bio.get(), &format)) ++count;
        EXPECT_EQ(count, 3) << name;
    }
}

TEST_F(CertTest, WithoutAnIndicatorEveryReadOfDerBeginsAnew) {
    const std::string bytes = readFile(material("chain.der"));
    const BioPtr bio = reading(bytes);
    for (int read = 0; read < 3; ++read) {
        const X509Ptr cert(TARNSSL_load_X509_bio(bio.get(), nullptr));
        ASSERT_NE(cert, nullptr);
        EXPECT_EQ(X509_cmp(cert.get(), certificate("leaf.pem").get()), 0);
    }
}

TEST_F(CertTest, TheRewindEmptiesAWrittenMemoryBio) {
    const std::string bytes = readFile(material("leaf.der"));
    const BioPtr bio(BIO_new(BIO_s_mem()));
    ASSERT_GT(BIO_write(bio.get(), bytes.data(), static_cast<int>(bytes.size())), 0);
    EXPECT_FALSE(readsCertificate(bio.get(), nullptr));
    EXPECT_EQ(BIO_pending(bio.get()), 0);
}

TEST_F(CertTest, ADirectoryIsNull) {
    const ScratchDir dir;
    EXPECT_EQ(TARNSSL_load_X509_file(dir.path().c_str()), nullptr);
    EXPECT_EQ(TARNSSL_load_X509_REQ_file(dir.path().c_str()), nullptr);
    EXPECT_EQ(TARNSSL_load_X509_CRL_file(dir.path().c_str()), nullptr);
    EXPECT_EQ(TARNSSL_load_PrivateKey_file(dir.path().c_str(), nullptr), nullptr);
}

TEST_F(CertTest, ThreadsDoNotDisturbEachOther) {
    const auto work = [] {
        const std::string chain = material("chain.pem");
        for (int round = 0; round < 20; ++round) {
            const X509Ptr leaf(TARNSSL_load_X509_file(material("leaf.der").c_str()));
            EXPECT_EQ(TARNSSL_cert_contain_issuer_of(chain.c_str(), leaf.get()), 1);
            EXPECT_EQ(TARNSSL_cert_contain_issuer(chain.c_str()), 1);
            EXPECT_EQ(TARNSSL_load_X509_file(material("cut_short.pem").c_str()), nullptr);
            EXPECT_THAT(drainErrors(), Not(IsEmpty())) << "a queue of its own";
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back(work);
    for (std::thread& thread : threads) thread.join();
    EXPECT_THAT(drainErrors(), IsEmpty());
}

TEST_F(CertTest, AReadInAGivenFormatNeitherRewindsNorClears) {
    const std::string bytes = readFile(material("leaf.der"));
    const BioPtr bio = reading(bytes);
    ERR_put_error(ERR_LIB_USER, 0, 1, "stale", 1);
    int format = 1;
    EXPECT_FALSE(readsCertificate(bio.get(), &format));
    EXPECT_EQ(BIO_pending(bio.get()), 0) << "read to its end in search of a block";
    EXPECT_EQ(drainErrors().size(), 2u);
}

TEST_F(CertTest, ABufferOfNegativeLengthEndsInNul) {
    const std::string pem = readFile(material("leaf.pem"));
    int format = 0;
    EXPECT_NE(X509Ptr(TARNSSL_load_X509_buf(pem.c_str(), -1, &format)), nullptr);
    EXPECT_NE(X509Ptr(TARNSSL_load_X509_buf(pem.c_str(), static_cast<int>(pem.size()), nullptr)),
              nullptr);
}

TEST_F(CertTest, ABufferTellsTheFormatThatItWasIn) {
    for (const auto& [name, told] : {std::pair("leaf.pem", 1), std::pair("leaf.der", 2)}) {
        const std::string bytes = readFile(material(name));
        const int length = static_cast<int>(bytes.size());
        int format = 0;
        EXPECT_NE(X509Ptr(TARNSSL_load_X509_buf(bytes.data(), length, &format)), nullptr);
        EXPECT_EQ(format, told) << name;
        format = 3 - told;  // the other
        EXPECT_EQ(TARNSSL_load_X509_buf(bytes.data(), length, &format), nullptr) << name;
        EXPECT_EQ(format, 3 - told) << name;
    }
}

TEST_F(CertTest, ACertificateBehindAKeyIsFound) {
    const std::string bytes = readFile(material("rsa.pem")) + readFile(material("leaf.pem"));
    const BioPtr bio = reading(bytes);
    EXPECT_TRUE(readsCertificate(bio.get(), nullptr));
    EXPECT_THAT(drainErrors(), IsEmpty());
}

// Asks everything but the address of a list, which would be kept for good.
void inspect(X509* cert) {
    char text[200];
    AUTHORITY_INFO_ACCESS* access = nullptr;
    if (TARNSSL_get_ocsp_resp_url_from_aia(cert, &access) != nullptr) {
        sk_ACCESS_DESCRIPTION_pop_free(access, ACCESS_DESCRIPTION_free);
    }
    EXPECT_EQ(TARNSSL_X509_to_fingerprint_str(cert, text, sizeof text), 1);
    (void)TARNSSL_X509_get_SANs_str(cert, text, sizeof text);
    static const X509Ptr issuer = certificate("issuing.pem");
    (void)TARNSSL_verify_issuer(issuer.get(), cert);
    (void)TARNSSL_verify_issuer(cert, issuer.get());
}

bool inspectsCertificate(BIO* bio, int* format) {
    const X509Ptr cert(TARNSSL_load_X509_bio(bio, format));
    if (cert != nullptr) inspect(cert.get());
    return cert != nullptr;
}
bool inspectsRequest(BIO* bio, int* format) {
    char text[200];
    const RequestPtr request(TARNSSL_load_X509_REQ_bio(bio, format));
    if (request != nullptr) TARNSSL_X509_REQ_get_SANs_str(request.get(), text, sizeof text);
    return request != nullptr;
}

struct DamageCase {
    Reader reader;
    const char* file;
};
class DamagedCertTest : public testing::TestWithParam<DamageCase> {
protected:
    bool loads(const std::string& bytes) const {
        const BioPtr bio = reading(bytes);
        int format = 0;
        const bool loaded = GetParam().reader(bio.get(), &format);
        ERR_clear_error();
        return loaded;
    }
};
INSTANTIATE_TEST_SUITE_P(All, DamagedCertTest,
                         testing::Values(DamageCase{inspectsCertificate, "leaf.pem"},
                                         DamageCase{inspectsCertificate, "leaf.der"},
                                         DamageCase{inspectsRequest, "named.req.pem"},
                                         DamageCase{inspectsRequest, "named.req.der"},
                                         DamageCase{readsCrl, "root.crl.pem"},
                                         DamageCase{readsCrl, "root.crl.der"}));

TEST_P(DamagedCertTest, IsNullWhereverItIsCut) {
    const std::string whole = readFile(material(GetParam().file));
    // Without its line end a block of PEM is still whole.
    const std::size_t needed = whole.back() == '\n' ? whole.size() - 1 : whole.size();
    expectNothingHeld([&] {
        for (std::size_t length = 0; length < needed; ++length) {
            ASSERT_FALSE(loads(whole.substr(0, length))) << length;
        }
    });
}

// Some altered bytes (in a signature, say) still make an object: then nothing may crash or leak.
TEST_P(DamagedCertTest, LeaksNothingWhereverItIsAltered) {
    std::string bytes = readFile(material(GetParam().file));
    int refused = 0;
    expectNothingHeld([&] {
        for (char& byte : bytes) {
            const char original = byte;
            byte = static_cast<char>(original ^ 0x15);
            if (!loads(bytes)) ++refused;
            byte = original;
        }
    });
    EXPECT_GT(refused, 0);
}

// The lists are kept for good, as they are of a certificate that is not altered.
TEST_F(CertTest, AnAlteredCertificateTellsAnAddressOrNone) {
    std::string bytes = readFile(material("leaf.der"));
    int addresses = 0;
    int others = 0;
    for (char& byte : bytes) {
        const char original = byte;
        byte = static_cast<char>(original ^ 0x15);
        const BioPtr bio = reading(bytes);
        X509Ptr cert(TARNSSL_load_X509_bio(bio.get(), nullptr));
        byte = original;
        if (cert == nullptr) continue;
        ++(firstCrlAddress(std::move(cert)).empty() ? others : addresses);
    }
    EXPECT_GT(addresses, 0);
    EXPECT_GT(others, 0);
}

}  // namespace
}  // namespace tarnutil_test
