// SPDX-License-Identifier: Apache-2.0
// Certificates with extensions that the openssl command would not write.
#ifndef TARNUTIL_TESTS_CERTS_BUILDER_H
#define TARNUTIL_TESTS_CERTS_BUILDER_H

#include <string>
#include <vector>

#include "material.h"

namespace tarnutil_test {

// DER, made by hand: a tag, the length and `content` (less than 64 KiB).
std::string tlv(int tag, const std::string& content);

// An extension: its NID and the DER inside its octet string.
struct Extension {
    int nid;
    std::string content;
    bool critical = false;
};

// A general name that is a URI, a DNS name.
std::string uri(const std::string& text);
std::string dns(const std::string& text);

// Authority information access: `methods` and `locations` (general names) in pairs.
enum class Method { ocsp, caIssuers };
struct Access {
    Method method;
    std::string location;
};
Extension authorityInfoAccess(const std::vector<Access>& accesses, bool critical = false);

// CRL distribution points, each made by one of the functions below.
Extension distributionPoints(const std::vector<std::string>& points);
std::string fullNamePoint(const std::vector<std::string>& names);
std::string relativeNamePoint();
std::string namelessPoint();

Extension subjectAltName(const std::vector<std::string>& names);

// A self-signed certificate with exactly these extensions.
X509Ptr makeCertificate(const std::vector<Extension>& extensions);
// A request for these extensions.
RequestPtr makeRequest(const std::vector<Extension>& extensions);

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_CERTS_BUILDER_H
