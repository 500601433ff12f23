// SPDX-License-Identifier: Apache-2.0
#include "builder.h"

#include <gtest/gtest.h>
#include <tarnutil/cert.h>

#include <numeric>

namespace tarnutil_test {
namespace {

constexpr int kSequence = 0x30;
constexpr int kDnsTag = 0x82;
constexpr int kUriTag = 0x86;

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values) text.push_back(static_cast<char>(value));
    return text;
}

std::string sequence(const std::vector<std::string>& members) {
    return tlv(kSequence, std::accumulate(members.begin(), members.end(), std::string()));
}

// 1.3.6.1.5.5.7.48.1 and .2
std::string objectOf(Method method) {
    return bytes({0x06, 0x08, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x30,
                  method == Method::ocsp ? 0x01 : 0x02});
}

using ExtensionPtr = std::unique_ptr<X509_EXTENSION, FreeWith<X509_EXTENSION_free>>;

ExtensionPtr encoded(const Extension& extension) {
    const std::unique_ptr<ASN1_OCTET_STRING, FreeWith<ASN1_OCTET_STRING_free>> octets(
        ASN1_OCTET_STRING_new());
    ASN1_OCTET_STRING_set(octets.get(),
                          reinterpret_cast<const unsigned char*>(extension.content.data()),
                          static_cast<int>(extension.content.size()));
    return ExtensionPtr(X509_EXTENSION_create_by_NID(nullptr, extension.nid,
                                                     extension.critical ? 1 : 0, octets.get()));
}

EvpPkeyPtr signer() {
    EvpPkeyPtr key(TARNSSL_load_PrivateKey_file(material("ec.pem").c_str(), nullptr));
    EXPECT_NE(key, nullptr);
    return key;
}

}  // namespace

std::string tlv(int tag, const std::string& content) {
    const int size = static_cast<int>(content.size());
    if (size < 0x80) return bytes({tag, size}) + content;
    return bytes({tag, 0x82, size >> 8, size & 0xFF}) + content;
}

std::string uri(const std::string& text) { return tlv(kUriTag, text); }
std::string dns(const std::string& text) { return tlv(kDnsTag, text); }

Extension authorityInfoAccess(const std::vector<Access>& accesses, bool critical) {
    std::vector<std::string> descriptions;
    for (const Access& access : accesses) {
        descriptions.push_back(sequence({objectOf(access.method), access.location}));
    }
    return {NID_info_access, sequence(descriptions), critical};
}

Extension distributionPoints(const std::vector<std::string>& points) {
    return {NID_crl_distribution_points, sequence(points)};
}

std::string fullNamePoint(const std::vector<std::string>& names) {
    const std::string all = std::accumulate(names.begin(), names.end(), std::string());
    return sequence({tlv(0xA0, tlv(0xA0, all))});
}

std::string relativeNamePoint() {
    const std::string commonName = bytes({0x06, 0x03, 0x55, 0x04, 0x03}) + tlv(0x0C, "relative");
    return sequence({tlv(0xA0, tlv(0xA1, sequence({commonName})))});
}

std::string namelessPoint() { return sequence({tlv(0x81, bytes({0x01, 0x40}))}); }

Extension subjectAltName(const std::vector<std::string>& names) {
    return {NID_subject_alt_name, sequence(names)};
}

X509Ptr makeCertificate(const std::vector<Extension>& extensions) {
    const EvpPkeyPtr key = signer();
    X509Ptr cert(X509_new());
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), 1);
    X509_gmtime_adj(X509_get_notBefore(cert.get()), 0);
    X509_gmtime_adj(X509_get_notAfter(cert.get()), 3600);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(cert.get()), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("made"), -1, -1, 0);
    X509_set_issuer_name(cert.get(), X509_get_subject_name(cert.get()));
    X509_set_pubkey(cert.get(), key.get());
    for (const Extension& extension : extensions) {
        EXPECT_EQ(X509_add_ext(cert.get(), encoded(extension).get(), -1), 1);
    }
    EXPECT_GT(X509_sign(cert.get(), key.get(), EVP_sha256()), 0);
    return cert;
}

RequestPtr makeRequest(const std::vector<Extension>& extensions) {
    RequestPtr request(X509_REQ_new());
    tarnutil::ExtensionsPtr list(sk_X509_EXTENSION_new_null());
    for (const Extension& extension : extensions) {
        sk_X509_EXTENSION_push(list.get(), encoded(extension).release());
    }
    EXPECT_EQ(X509_REQ_add_extensions(request.get(), list.get()), 1);
    return request;
}

}  // namespace tarnutil_test
