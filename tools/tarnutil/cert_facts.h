// SPDX-License-Identifier: Apache-2.0
// What the cert commands tell of certificates: read from a file, and made into text.
#ifndef TARNUTIL_TOOLS_CERT_FACTS_H
#define TARNUTIL_TOOLS_CERT_FACTS_H

#include <tarnutil/cert.h>

#include <string>
#include <vector>

#include "openssl.h"

namespace tarnutil_command {

struct CertificateFile {
    std::string path;
    std::string format;  // "PEM" or "DER"
    std::vector<tarnutil::X509Ptr> certificates;
    std::string damage;  // what ended the reading before the file did; empty if nothing
};

// Reads every certificate of the file. Throws Unusable if it cannot be opened, and if it holds
// none: then with what each format failed with.
CertificateFile readCertificates(const std::string& path);

// The oldest reason in OpenSSL's error queue, which is where the trouble began; empties the queue.
std::string takeReason();

// Each fact as printable text, in JSON too; empty where the certificate does not tell.
std::string subjectOf(X509* cert);
std::string issuerOf(X509* cert);
std::string validFrom(X509* cert);
std::string validUntil(X509* cert);
std::string fingerprintOf(X509* cert);
std::string alternativeNamesOf(X509* cert);
std::string ocspUrlOf(X509* cert);
std::string crlUrlOf(X509* cert);

// One row for each of the facts above.
struct Fact {
    const char* title;
    const char* key;  // in JSON
    std::string (*of)(X509* cert);
};
extern const std::vector<Fact> kFacts;

}  // namespace tarnutil_command
#endif  // TARNUTIL_TOOLS_CERT_FACTS_H
