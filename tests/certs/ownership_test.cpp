// SPDX-License-Identifier: Apache-2.0
// Who releases what the functions return: the table itself stands in docs/certificates.md and is
// read from there.
#include <gmock/gmock.h>
#include <tarnutil/cert.h>

#include <functional>

#include "document.h"
#include "leaks.h"
#include "material.h"
#include "scratch_dir.h"

namespace tarnutil_test {
namespace {

// Takes a result; what is returned releases it.
using Take = std::function<std::function<void()>()>;

template <class Load, class Free>
Take loading(const char* name, Load load, Free free) {
    return [=] {
        auto* const object = load(material(name).c_str());
        EXPECT_NE(object, nullptr);
        return [=] { free(object); };
    };
}
// As `loading`, through a BIO, which is released before the result is.
template <class Load, class Free>
Take readingFrom(const char* name, Load load, Free free) {
    return [=] {
        const std::string bytes = readFile(material(name));
        const BioPtr bio = reading(bytes);
        auto* const object = load(bio.get());
        EXPECT_NE(object, nullptr);
        return [=] { free(object); };
    };
}
X509* fromBuffer(const char* path) {
    const std::string bytes = readFile(path);
    return TARNSSL_load_X509_buf(bytes.data(), static_cast<int>(bytes.size()), nullptr);
}

// A context that `use` put something into.
template <class Use>
Take installed(const char* name, Use use) {
    return [=] {
        SSL_CTX* const ctx = SSL_CTX_new(SSLv23_method());
        EXPECT_EQ(use(ctx, material(name).c_str()), 1);
        return [=] { SSL_CTX_free(ctx); };
    };
}

std::function<void()> responder() {
    AUTHORITY_INFO_ACCESS* out = nullptr;
    const X509Ptr cert = certificate("leaf.pem");
    EXPECT_NE(TARNSSL_get_ocsp_resp_url_from_aia(cert.get(), &out), nullptr);
    return [=] { sk_ACCESS_DESCRIPTION_pop_free(out, ACCESS_DESCRIPTION_free); };
}

std::function<void()> listAddress() {
    EXPECT_NE(firstCrlAddress(certificate("leaf.pem")), "");
    return [] {};
}

struct OwnershipCase {
    const char* function;
    const char* releasedWith;
    std::vector<Take> takes;
};
const OwnershipCase kOwnershipCases[] = {
    {"load_X509_*",
     "X509_free",
     {loading("leaf.pem", TARNSSL_load_X509_file, X509_free),
      loading("leaf.pem", fromBuffer, X509_free),
      readingFrom(
          "leaf.pem", [](BIO* bio) { return TARNSSL_load_X509_bio(bio, nullptr); }, X509_free)}},
    {"load_X509_REQ_*",
     "X509_REQ_free",
     {loading("named.req.pem", TARNSSL_load_X509_REQ_file, X509_REQ_free),
      readingFrom(
          "named.req.pem", [](BIO* bio) { return TARNSSL_load_X509_REQ_bio(bio, nullptr); },
          X509_REQ_free)}},
    {"load_X509_CRL_*",
     "X509_CRL_free",
     {loading("root.crl.pem", TARNSSL_load_X509_CRL_file, X509_CRL_free),
      readingFrom("root.crl.pem", TARNSSL_load_X509_CRL_bio, X509_CRL_free)}},
    {"load_PrivateKey_*",
     "EVP_PKEY_free",
     {loading(
          "ec.pem", [](const char* path) { return TARNSSL_load_PrivateKey_file(path, nullptr); },
          EVP_PKEY_free),
      readingFrom(
          "ec.pem", [](BIO* bio) { return TARNSSL_load_PrivateKey_bio(bio, nullptr); },
          EVP_PKEY_free)}},
    {"load_RSA_*",
     "RSA_free",
     {loading(
          "rsa.pem", [](const char* path) { return TARNSSL_load_RSA_file(path, nullptr); },
          RSA_free),
      readingFrom(
          "rsa.pem", [](BIO* bio) { return TARNSSL_load_RSA_bio(bio, nullptr); }, RSA_free)}},
    {"CTX_use_*",
     "with the context",
     {installed("leaf.pem", TARNSSL_CTX_use_certificate_file),
      installed("chain.pem", TARNSSL_CTX_use_certificate_chain_file),
      installed("ec.pem",
                [](SSL_CTX* ctx, const char* path) {
                    return TARNSSL_CTX_use_PrivateKey_file(ctx, path, nullptr);
                })}},
    {"get_ocsp_resp_url_from_aia",
     "sk_ACCESS_DESCRIPTION_pop_free(out, ACCESS_DESCRIPTION_free)",
     {responder}},
    {"X509_get_first_crl_dp", "never; suppressions", {listAddress}},
};

// Whether results take memory while none of them is released.
bool takesMemory(const Take& take) {
    std::vector<std::function<void()>> releases;
    const bool grows = growsEachTime([&] { releases.push_back(take()); });
    for (const auto& release : releases) release();
    return grows;
}

TEST(CertOwnershipTest, EveryRowOfTheDocumentIsProvedHere) {
    std::vector<std::string> written;
    std::vector<std::string> proved;
    for (const DocumentRow& row : documentedRows("## Who owns what")) {
        written.push_back(row.at(0) + ": " + row.at(2));
    }
    for (const OwnershipCase& row : kOwnershipCases) {
        proved.push_back(std::string(row.function) + ": " + row.releasedWith);
    }
    EXPECT_THAT(written, testing::ElementsAreArray(proved));
}

TEST(CertOwnershipTest, ResultsAreHeldUntilTheirReleaseAndNoLonger) {
    const bool counted = liveBytes() != 0;  // a sanitizer counts for itself
    for (const OwnershipCase& row : kOwnershipCases) {
        SCOPED_TRACE(row.function);
        const bool forGood = std::string(row.releasedWith).find("never") == 0;
        for (const Take& take : row.takes) {
            EXPECT_EQ(takesMemory(take), counted);
            const auto takeAndRelease = [&] { take()(); };
            if (!forGood) {
                expectNothingHeld(takeAndRelease);
            } else {
                EXPECT_EQ(growsEachTime(takeAndRelease), counted);
            }
        }
    }
}

}  // namespace
}  // namespace tarnutil_test
