// SPDX-License-Identifier: Apache-2.0
// Questions about certificates.
#include <gmock/gmock.h>
#include <tarnutil/cert.h>

#include <cstring>

#include "builder.h"
#include "scratch_dir.h"

namespace tarnutil_test {
namespace {

std::string textOf(const ASN1_STRING* text) {
    return std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
                       static_cast<std::size_t>(ASN1_STRING_length(text)));
}

// Issuers

TEST(VerifyIssuerTest, TellsTheIssuerByNameAndSignature) {
    const X509Ptr root = certificate("root.pem");
    const X509Ptr policy = certificate("policy.pem");
    const X509Ptr leaf = certificate("leaf.pem");
    const X509Ptr unrelated = certificate("unrelated.pem");
    EXPECT_EQ(TARNSSL_verify_issuer(root.get(), root.get()), 1) << "a self-signed one is its own";
    EXPECT_EQ(TARNSSL_verify_issuer(root.get(), policy.get()), 1);
    EXPECT_EQ(TARNSSL_verify_issuer(policy.get(), root.get()), 0) << "the other way round";
    EXPECT_EQ(TARNSSL_verify_issuer(root.get(), leaf.get()), 0) << "two steps up";
    EXPECT_EQ(TARNSSL_verify_issuer(root.get(), unrelated.get()), 0);
    EXPECT_EQ(TARNSSL_verify_issuer(nullptr, root.get()), 0);
    EXPECT_EQ(TARNSSL_verify_issuer(root.get(), nullptr), 0);
    EXPECT_EQ(TARNSSL_verify_issuer(nullptr, nullptr), 0);
}

// Same names, same key identifiers (there are none), another key.
TEST(VerifyIssuerTest, MatchingNamesAreNotEnough) {
    const X509Ptr made = makeCertificate({});
    const X509Ptr forged = makeCertificate({});
    const EvpPkeyPtr otherKey(
        TARNSSL_load_PrivateKey_file(material("leaf.key.pem").c_str(), nullptr));
    ASSERT_GT(X509_sign(forged.get(), otherKey.get(), EVP_sha256()), 0);
    EXPECT_EQ(TARNSSL_verify_issuer(made.get(), made.get()), 1);
    EXPECT_EQ(X509_check_issued(made.get(), forged.get()), X509_V_OK);
    EXPECT_EQ(TARNSSL_verify_issuer(made.get(), forged.get()), 0);
    ERR_clear_error();
}

// A certificate that says which key signed it.
X509Ptr signedByKey(const std::string& identifier) {
    return makeCertificate({{NID_authority_key_identifier, tlv(0x30, tlv(0x80, identifier))}});
}

TEST(VerifyIssuerTest, KeyIdentifiersHaveToMatch) {
    const X509Ptr issuer = makeCertificate({{NID_subject_key_identifier, tlv(0x04, "mine")}});
    EXPECT_EQ(TARNSSL_verify_issuer(issuer.get(), signedByKey("mine").get()), 1);
    EXPECT_EQ(TARNSSL_verify_issuer(issuer.get(), signedByKey("other").get()), 0);
}

TEST(VerifyIssuerTest, AnIssuerWithoutAReadableKeyIsNone) {
    const X509Ptr issuer = makeCertificate({});
    X509* const keyless = X509_new();
    const X509Ptr owner(keyless);
    X509_set_subject_name(keyless, X509_get_subject_name(issuer.get()));
    EXPECT_EQ(TARNSSL_verify_issuer(keyless, issuer.get()), 0);
    ERR_clear_error();
}

struct IssuerCase {
    const char* says;
    std::vector<const char*> parts;  // of the file
    int answer;
};
// clang-format off
const IssuerCase kIssuerOfLeaf[] = {
    // says                                    parts of the file                    answer
    {"an unrelated one, then the issuer",      {"unrelated.pem", "issuing.pem"},    1},
    {"the issuer alone",                       {"issuing.pem"},                     1},
    {"the issuer in DER",                      {"issuing.der"},                     1},
    {"DER behind DER",                         {"unrelated.der", "issuing.der"},    1},
    {"DER behind PEM is not read",             {"unrelated.pem", "issuing.der"},    0},
    {"PEM within a line behind DER is not read", {"unrelated.der", "letter", "issuing.pem"}, 0},
    {"PEM on a line of its own is, and no DER", {"unrelated.der", "newline", "issuing.pem"}, 1},
    {"so that DER before it is not found",     {"issuing.der", "newline", "unrelated.pem"}, 0},
    {"damage ends the search",                 {"cut_short.pem", "issuing.pem"},    0},
    {"a key before the issuer is skipped",     {"rsa.pem", "issuing.pem"},          1},
    {"a chain without the issuer",             {"policy.pem", "root.pem"},          0},
    {"a namesake, then the issuer",            {"namesake.pem", "issuing.pem"},     1},
    {"a namesake alone",                       {"namesake.pem"},                    0},
    {"an empty file",                          {},                                  0},
};
const IssuerCase kOwnIssuer[] = {
    // says                                    parts of the file                    answer
    {"only a leaf",                            {"leaf.pem"},                        0},
    {"a leaf and its issuer",                  {"leaf.pem", "issuing.pem"},         1},
    {"a leaf, its issuer last",                {"leaf.pem", "policy.pem", "issuing.pem"}, 1},
    {"a leaf and a stranger",                  {"leaf.pem", "unrelated.pem"},       0},
    {"a leaf, its issuer behind a namesake",   {"leaf.pem", "namesake.pem", "issuing.pem"}, 1},
    {"a leaf and a namesake of its issuer",    {"leaf.pem", "namesake.pem"},        0},
    {"a forged leaf and the issuer it names",  {"forged.pem", "issuing.pem"},       0},
    {"a self-signed one alone is not compared", {"root.pem"},                       0},
    {"a self-signed one twice is its issuer",  {"root.pem", "root.pem"},            1},
    {"DER never does for a chain",             {"leaf.der", "issuing.der"},         -1},
    {"damage in the chain",                    {"leaf.pem", "cut_short.pem"},       -1},
    {"an empty file",                          {},                                  -1},
};
// clang-format on

std::string joined(const ScratchDir& dir, const IssuerCase& row) {
    std::string content;
    for (const char* part : row.parts) content += readFile(material(part));
    return dir.write("file", content);
}

TEST(ContainIssuerTest, FindsTheIssuerOfACertificate) {
    const X509Ptr leaf = certificate("leaf.pem");
    for (const IssuerCase& row : kIssuerOfLeaf) {
        const ScratchDir dir;
        EXPECT_EQ(TARNSSL_cert_contain_issuer_of(joined(dir, row).c_str(), leaf.get()), row.answer)
            << row.says;
        ERR_clear_error();
    }
}

// The name of its issuer and no key identifier, but another's signature.
TEST(ContainIssuerTest, AForgedCertificateHasNoIssuer) {
    const X509Ptr forged = certificate("forged.pem");
    const std::string chain = material("chain.pem");
    ASSERT_EQ(X509_check_issued(certificate("issuing.pem").get(), forged.get()), X509_V_OK);
    EXPECT_EQ(TARNSSL_cert_contain_issuer_of(chain.c_str(), forged.get()), 0);
    const std::string namesake = material("namesake.pem");
    EXPECT_EQ(TARNSSL_cert_contain_issuer_of(namesake.c_str(), forged.get()), 1);
    ERR_clear_error();
}

TEST(ContainIssuerTest, RefusesAMissingFileAndAMissingSubject) {
    const X509Ptr leaf = certificate("leaf.pem");
    EXPECT_EQ(TARNSSL_cert_contain_issuer_of("/nonexistent/file", leaf.get()), -1);
    EXPECT_EQ(TARNSSL_cert_contain_issuer_of(material("chain.pem").c_str(), nullptr), -1);
    EXPECT_EQ(TARNSSL_cert_contain_issuer_of("/nonexistent/file", nullptr), -1);
    ERR_clear_error();
}

TEST(ContainIssuerTest, FindsTheIssuerOfTheFilesOwnLeaf) {
    for (const IssuerCase& row : kOwnIssuer) {
        const ScratchDir dir;
        EXPECT_EQ(TARNSSL_cert_contain_issuer(joined(dir, row).c_str()), row.answer) << row.says;
        ERR_clear_error();
    }
    EXPECT_EQ(TARNSSL_cert_contain_issuer("/nonexistent/file"), -1);
    ERR_clear_error();
}

// OCSP

struct OcspCase {
    const char* says;
    std::vector<Extension> extensions;
    const char* url;  // null: none
};
const Extension kUndecodable = {NID_info_access, "\x30\x03\x02\x01"};
// The value of authorityInfoAccess for one OCSP responder.
Extension responder(const std::string& url, bool critical = false) {
    return authorityInfoAccess({{Method::ocsp, uri(url)}}, critical);
}
// clang-format off
const OcspCase kOcspCases[] = {
    // says                                       extensions                                                    URL
    {"plain HTTP",                                {responder("http://a/")},                                     "http://a/"},
    {"exactly the scheme",                        {responder("http://")},                                       "http://"},
    {"6 bytes are too few",                       {responder("http:/")},                                        nullptr},
    {"8 bytes",                                   {responder("http://a")},                                      "http://a"},
    {"HTTPS does not count",                      {responder("https://a/")},                                    nullptr},
    {"nor does the scheme in capitals",           {responder("HTTP://a/")},                                     nullptr},
    {"HTTPS before HTTP",                         {authorityInfoAccess({{Method::ocsp, uri("https://a/")},
                                                                        {Method::ocsp, uri("http://b/")}})},     "http://b/"},
    {"the first of two",                          {authorityInfoAccess({{Method::ocsp, uri("http://a/")},
                                                                        {Method::ocsp, uri("http://b/")}})},     "http://a/"},
    {"behind where the issuer is fetched",        {authorityInfoAccess({{Method::caIssuers, uri("http://a/")},
                                                                        {Method::ocsp, uri("http://b/")}})},     "http://b/"},
    {"behind a location that is no URI",          {authorityInfoAccess({{Method::ocsp, dns("http://a/")},
                                                                        {Method::ocsp, uri("http://b/")}})},     "http://b/"},
    {"behind 6 bytes",                            {authorityInfoAccess({{Method::ocsp, uri("http:/")},
                                                                        {Method::ocsp, uri("http://b/")}})},     "http://b/"},
    {"behind the scheme in capitals",             {authorityInfoAccess({{Method::ocsp, uri("HTTP://a/")},
                                                                        {Method::ocsp, uri("http://b/")}})},     "http://b/"},
    {"where the issuer is fetched is another thing", {authorityInfoAccess({{Method::caIssuers, uri("http://a/")}})}, nullptr},
    {"a location that is no URI",                 {authorityInfoAccess({{Method::ocsp, dns("http://a/")}})},    nullptr},
    {"no access at all",                          {authorityInfoAccess({})},                                    nullptr},
    {"no extension",                              {},                                                           nullptr},
    {"in a second extension",                     {responder("https://a/"), responder("http://b/")},            "http://b/"},
    {"behind one that does not decode",           {kUndecodable, responder("http://b/")},                       "http://b/"},
    {"one that does not decode",                  {kUndecodable},                                               nullptr},
    {"a critical one is not looked at",           {responder("http://a/", true)},                               nullptr},
    {"a critical one ends the search",            {responder("https://a/", true), responder("http://b/")},      nullptr},
    {"a critical one comes too late",             {responder("http://a/"), responder("http://b/", true)},       "http://a/"},
};
// clang-format on

TEST(CertOcspTest, FindsTheFirstPlainHttpResponder) {
    for (const OcspCase& row : kOcspCases) {
        const X509Ptr cert = makeCertificate(row.extensions);
        AUTHORITY_INFO_ACCESS* out = nullptr;
        const ASN1_IA5STRING* url = TARNSSL_get_ocsp_resp_url_from_aia(cert.get(), &out);
        ERR_clear_error();
        ASSERT_EQ(url != nullptr, row.url != nullptr) << row.says;
        if (url == nullptr) continue;
        EXPECT_EQ(textOf(url), row.url) << row.says;
        ASSERT_NE(out, nullptr);
        sk_ACCESS_DESCRIPTION_pop_free(out, ACCESS_DESCRIPTION_free);
    }
}

TEST(CertOcspTest, WithoutTheExtensionTheListIsNull) {
    const X509Ptr cert = makeCertificate({});
    auto* out = reinterpret_cast<AUTHORITY_INFO_ACCESS*>(cert.get());  // anything but null
    EXPECT_EQ(TARNSSL_get_ocsp_resp_url_from_aia(cert.get(), &out), nullptr);
    EXPECT_EQ(out, nullptr);
}

TEST(CertOcspTest, BytesBehindANulAreKept) {
    const std::string url("http://a\0b", 10);
    const X509Ptr cert = makeCertificate({responder(url)});
    AUTHORITY_INFO_ACCESS* out = nullptr;
    const ASN1_IA5STRING* found = TARNSSL_get_ocsp_resp_url_from_aia(cert.get(), &out);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(textOf(found), url);
    sk_ACCESS_DESCRIPTION_pop_free(out, ACCESS_DESCRIPTION_free);
}

// Distribution points of revocation lists

struct CrlCase {
    const char* says;
    std::vector<std::string> points;
    const char* url;
};
const std::string kLdap = uri("ldap://directory/cn=x");
// clang-format off
const CrlCase kCrlCases[] = {
    // says                                         points                                                          URL
    {"plain HTTP",                                  {fullNamePoint({uri("http://a/")})},                            "http://a/"},
    {"HTTP behind LDAP",                            {fullNamePoint({kLdap, uri("http://a/")})},                     "http://a/"},
    {"HTTP before LDAP",                            {fullNamePoint({uri("http://a/"), kLdap})},                     "http://a/"},
    {"the first of two",                            {fullNamePoint({uri("http://a/"), uri("http://b/")})},          "http://a/"},
    {"HTTP behind the scheme in capitals",          {fullNamePoint({uri("HTTP://a/"), uri("http://b/")})},          "http://b/"},
    {"the scheme in capitals is another",           {fullNamePoint({uri("HTTP://a/")})},                            "HTTP://a/"},
    {"HTTP behind a name that is no URI",           {fullNamePoint({dns("http://b/"), uri("http://a/")})},          "http://a/"},
    {"HTTP behind 6 bytes",                         {fullNamePoint({uri("ftp://"), uri("http://a/")})},             "http://a/"},
    {"LDAP where there is no HTTP",                 {fullNamePoint({kLdap})},                                       "ldap://directory/cn=x"},
    {"the last of several that are no HTTP",        {fullNamePoint({kLdap, uri("ftp://host/")})},                   "ftp://host/"},
    {"LDAP in front of a point with HTTP",          {fullNamePoint({kLdap}), fullNamePoint({uri("http://a/")})},    "ldap://directory/cn=x"},
    {"exactly the scheme",                          {fullNamePoint({uri("http://")})},                              "http://"},
    {"7 bytes of something else",                   {fullNamePoint({uri("ftp://a")})},                              "ftp://a"},
    {"8 bytes of something else",                   {fullNamePoint({uri("ftp://ab")})},                             "ftp://ab"},
    {"6 bytes are too few",                         {fullNamePoint({uri("ftp://")})},                               ""},
    {"6 bytes: the next point is looked at",        {fullNamePoint({uri("ftp://")}), fullNamePoint({uri("http://b/")})}, "http://b/"},
    {"a name that is no URI",                       {fullNamePoint({dns("http://a/")})},                            ""},
    {"a relative name",                             {relativeNamePoint()},                                          ""},
    {"behind a relative name",                      {relativeNamePoint(), fullNamePoint({uri("http://a/")})},       "http://a/"},
    {"behind a point without a name",               {namelessPoint(), fullNamePoint({uri("http://a/")})},           "http://a/"},
    {"no point",                                    {},                                                             ""},
};
// clang-format on

TEST(CertCrlTest, FindsTheFirstUsableAddress) {
    for (const CrlCase& row : kCrlCases) {
        X509Ptr cert = makeCertificate({distributionPoints(row.points)});
        EXPECT_EQ(firstCrlAddress(std::move(cert)), row.url) << row.says;
    }
}

TEST(CertCrlTest, NoExtensionAndOneThatDoesNotDecodeAreNull) {
    EXPECT_EQ(TARNSSL_X509_get_first_crl_dp(makeCertificate({}).get()), nullptr);
    const Extension undecodable = {NID_crl_distribution_points, "\x30\x03\x02\x01"};
    EXPECT_EQ(TARNSSL_X509_get_first_crl_dp(makeCertificate({undecodable}).get()), nullptr);
    ERR_clear_error();
}

TEST(CertCrlTest, ASecondExtensionMakesBothCountForNothing) {
    const Extension points = distributionPoints({fullNamePoint({uri("http://a/")})});
    EXPECT_EQ(TARNSSL_X509_get_first_crl_dp(makeCertificate({points, points}).get()), nullptr);
    ERR_clear_error();
}

TEST(CertCrlTest, ACriticalExtensionCountsToo) {
    Extension points = distributionPoints({fullNamePoint({uri("http://a/")})});
    points.critical = true;
    EXPECT_EQ(firstCrlAddress(makeCertificate({points})), "http://a/");
}

TEST(CertCrlTest, BytesBehindANulAreKept) {
    const std::string url("http://a\0b", 10);
    const X509Ptr cert = makeCertificate({distributionPoints({fullNamePoint({uri(url)})})});
    const unsigned char* const found = firstCrlBytes(cert);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(found), url.size()), url);
}

TEST(CertCrlTest, AnLdapAddressIsReturnedWhenThereIsNoOther) {
    X509Ptr cert = makeCertificate({distributionPoints({fullNamePoint({kLdap})})});
    EXPECT_EQ(firstCrlAddress(std::move(cert)), "ldap://directory/cn=x");
}

TEST(CertCrlTest, TheAddressOutlivesItsCertificate) {
    EXPECT_EQ(firstCrlAddress(certificate("leaf.pem")), "http://crl.example/list.crl");
}

// Fingerprints

std::string fingerprintByHand(X509* cert) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    X509_digest(cert, EVP_sha256(), digest, &length);
    std::string text = "SHA256";
    for (unsigned i = 0; i < length; ++i) {
        char group[4];
        (void)std::snprintf(group, sizeof group, "%c%02X", i == 0 ? '/' : ':', digest[i]);
        text += group;
    }
    return text;
}

TEST(CertFingerprintTest, IsPrefixAndPairsOfDigits) {
    const X509Ptr leaf = certificate("leaf.pem");
    char buffer[103];
    EXPECT_EQ(TARNSSL_X509_to_fingerprint_str(leaf.get(), buffer, sizeof buffer), 1);
    EXPECT_EQ(std::strlen(buffer), 102u);
    EXPECT_EQ(std::string(buffer), fingerprintByHand(leaf.get()));
}

TEST(CertFingerprintTest, AShortBufferHoldsTheBeginning) {
    const X509Ptr leaf = certificate("leaf.pem");
    const std::string whole = fingerprintByHand(leaf.get());
    for (std::size_t size = 1; size <= 102; ++size) {
        std::string buffer(size + 1, '#');
        ASSERT_EQ(TARNSSL_X509_to_fingerprint_str(leaf.get(), &buffer[0], size), -1) << size;
        ASSERT_EQ(buffer, whole.substr(0, size - 1) + '\0' + '#') << size;
    }
    char untouched = '#';
    EXPECT_EQ(TARNSSL_X509_to_fingerprint_str(leaf.get(), &untouched, 0), -1);
    EXPECT_EQ(untouched, '#');
}

// Subject alternative names

TEST(CertSansTest, NamesArePrintedOnOneLine) {
    char buffer[200] = "before";
    EXPECT_GE(TARNSSL_X509_get_SANs_str(certificate("leaf.pem").get(), buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "DNS:localhost, DNS:a.example, IP Address:127.0.0.1");
}

TEST(CertSansTest, NoExtensionIsNegativeAndEmpty) {
    char buffer[200] = "before";
    EXPECT_LT(TARNSSL_X509_get_SANs_str(certificate("root.pem").get(), buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
}

TEST(CertSansTest, AnExtensionThatDoesNotDecodeIsEmpty) {
    const X509Ptr cert = makeCertificate({{NID_subject_alt_name, "\x30\x03\x02\x01"}});
    char buffer[200] = "before";
    EXPECT_GE(TARNSSL_X509_get_SANs_str(cert.get(), buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
    ERR_clear_error();
}

TEST(CertSansTest, TheFirstOfTwoExtensionsCounts) {
    const X509Ptr cert = makeCertificate({subjectAltName({dns("a")}), subjectAltName({dns("b")})});
    char buffer[200];
    EXPECT_GE(TARNSSL_X509_get_SANs_str(cert.get(), buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "DNS:a");
}

TEST(CertSansTest, ALongTextIsCutTwoBelowTheSize) {
    const X509Ptr cert = makeCertificate({subjectAltName({dns(std::string(300, 'x'))})});
    const std::string whole = "DNS:" + std::string(300, 'x');
    for (int size = 1; size < 320; ++size) {
        const std::size_t length = static_cast<std::size_t>(size);
        std::string buffer(length + 1, '#');
        ASSERT_GE(TARNSSL_X509_get_SANs_str(cert.get(), &buffer[0], size), 0);
        ASSERT_EQ(std::string(buffer.c_str()), whole.substr(0, length < 2 ? 0 : length - 2));
        ASSERT_EQ(buffer.back(), '#') << "nothing is written behind the buffer";
    }
}

TEST(CertSansTest, OnlyTheFirstLineIsKept) {
    const X509Ptr cert = makeCertificate({subjectAltName({dns("a\nb")})});
    char buffer[200];
    EXPECT_GE(TARNSSL_X509_get_SANs_str(cert.get(), buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "DNS:a\n");
}

TEST(CertSansTest, ANameThatHoldsANulIsNotPrintedAndNoneBesideIt) {
    const X509Ptr cert = makeCertificate({subjectAltName({dns(std::string("a\0b", 3)), dns("c")})});
    char buffer[200] = "before";
    EXPECT_GE(TARNSSL_X509_get_SANs_str(cert.get(), buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
    ERR_clear_error();
}

TEST(CertSansTest, TextIsForDisplayOnly) {
    const X509Ptr cert = makeCertificate({subjectAltName({dns("a.example, DNS:b.example")})});
    char buffer[200];
    EXPECT_GE(TARNSSL_X509_get_SANs_str(cert.get(), buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "DNS:a.example, DNS:b.example");
    EXPECT_NE(X509_check_host(cert.get(), "b.example", 0, 0, nullptr), 1);
}

TEST(CertSansTest, RequestsTellTheNamesTheyAskFor) {
    char buffer[200] = "before";
    const RequestPtr named(TARNSSL_load_X509_REQ_file(material("named.req.pem").c_str()));
    ASSERT_NE(named, nullptr);
    TARNSSL_X509_REQ_get_SANs_str(named.get(), buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "DNS:a.example, DNS:b.example");

    const RequestPtr plain(TARNSSL_load_X509_REQ_file(material("plain.req.pem").c_str()));
    ASSERT_NE(plain, nullptr);
    TARNSSL_X509_REQ_get_SANs_str(plain.get(), buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "") << "asks for no extensions";

    const RequestPtr others = makeRequest({authorityInfoAccess({})});
    std::strcpy(buffer, "before");
    TARNSSL_X509_REQ_get_SANs_str(others.get(), buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "") << "asks for other extensions";
    ERR_clear_error();
}

TEST(CertInspectionTest, ARequestWhoseExtensionsAreNoneHasNoNames) {
    const RequestPtr request(X509_REQ_new());
    const unsigned char text[] = {'t', 'e', 'x', 't'};
    ASSERT_EQ(X509_REQ_add1_attr_by_NID(request.get(), NID_ext_req, V_ASN1_OCTET_STRING, text,
                                        sizeof text),
              1);
    ASSERT_EQ(X509_REQ_get_extensions(request.get()), nullptr);
    char buffer[200] = "before";
    TARNSSL_X509_REQ_get_SANs_str(request.get(), buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "");
    ERR_clear_error();
}

TEST(CertInspectionTest, LeavesNothingBehind) {
    const X509Ptr cert = makeCertificate(
        {responder("https://a/"), responder("http://b/", true), subjectAltName({dns("a")})});
    const RequestPtr request = makeRequest({subjectAltName({dns("a")})});
    expectNothingHeld([&] {
        char buffer[200];
        AUTHORITY_INFO_ACCESS* out = nullptr;
        (void)TARNSSL_get_ocsp_resp_url_from_aia(cert.get(), &out);
        (void)TARNSSL_X509_get_SANs_str(cert.get(), buffer, sizeof buffer);
        TARNSSL_X509_REQ_get_SANs_str(request.get(), buffer, sizeof buffer);
        (void)TARNSSL_X509_to_fingerprint_str(cert.get(), buffer, sizeof buffer);
        (void)TARNSSL_verify_issuer(cert.get(), cert.get());
        (void)TARNSSL_cert_contain_issuer(material("chain.pem").c_str());
        (void)TARNSSL_cert_contain_issuer_of(material("chain.pem").c_str(), cert.get());
        (void)TARNSSL_cert_contain_issuer_of(material("chain.pem").c_str(), nullptr);
        ERR_clear_error();
    });
}

}  // namespace
}  // namespace tarnutil_test
