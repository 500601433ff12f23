// SPDX-License-Identifier: Apache-2.0
#include "cert_facts.h"

#include <cstring>

#include "commands.h"
#include "output.h"

namespace tarnutil_command {
namespace {

using tarnutil::BioPtr;
using tarnutil::FreeWith;

enum Format { kUnknown = 0, kPem = 1, kDer = 2 };

BioPtr openFile(const std::string& path) {
    ERR_clear_error();
    BioPtr file(BIO_new_file(path.c_str(), "r"));
    if (file == nullptr) throw Unusable("cannot open " + path + ": " + takeReason());
    return file;
}

// What reading the file in that format alone fails with.
std::string failureAs(int format, const std::string& path) {
    const BioPtr file = openFile(path);
    (void)tarnutil::X509Ptr(TARNSSL_load_X509_bio(file.get(), &format));
    return takeReason();
}

// What ended the reading of a file, if it was not the file's end. PEM ends with an error of its
// own.
std::string takeDamage(int format, BIO* file) {
    const unsigned long error = ERR_peek_last_error();
    const bool ended = format == kPem ? ERR_GET_LIB(error) == ERR_LIB_PEM &&
                                            ERR_GET_REASON(error) == PEM_R_NO_START_LINE
                                      : BIO_eof(file) != 0 && error == 0;
    const std::string reason = takeReason();
    return ended ? "" : reason;
}

// What `print` writes into a BIO.
template <class Print>
std::string printed(Print print) {
    const BioPtr bio(BIO_new(BIO_s_mem()));
    print(bio.get());
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return printable(std::string(data, static_cast<std::size_t>(size)));
}

std::string textOf(X509_NAME* name) {
    constexpr unsigned long escapes = ASN1_STRFLGS_ESC_MSB | ASN1_STRFLGS_ESC_CTRL;
    constexpr unsigned long readable = XN_FLAG_ONELINE & ~escapes;  // printable does that
    return printed([=](BIO* bio) { X509_NAME_print_ex(bio, name, 0, readable); });
}

std::string textOf(const ASN1_TIME* time) {
    return printed([=](BIO* bio) { ASN1_TIME_print(bio, time); });
}

std::string addressOf(const ASN1_IA5STRING* url) {
    return printed([=](BIO* bio) { ASN1_STRING_print_ex(bio, url, 0); });
}

using PointsPtr = std::unique_ptr<CRL_DIST_POINTS, FreeWith<CRL_DIST_POINTS_free>>;

// The first URI of a distribution point whose bytes up to a NUL are `beginning`; otherwise null.
const ASN1_IA5STRING* uriOf(const DIST_POINT* point, const char* beginning) {
    if (point->distpoint == nullptr || point->distpoint->type != 0) return nullptr;
    const GENERAL_NAMES* const names = point->distpoint->name.fullname;
    for (int i = 0; i < sk_GENERAL_NAME_num(names); ++i) {
        const GENERAL_NAME* const name = sk_GENERAL_NAME_value(names, i);
        if (name->type != GEN_URI) continue;
        const ASN1_IA5STRING* const uri = name->d.uniformResourceIdentifier;
        const auto* const text = reinterpret_cast<const char*>(ASN1_STRING_get0_data(uri));
        if (std::strcmp(text, beginning) == 0) return uri;  // the decoder put a NUL behind it
    }
    return nullptr;
}

// The address of a revocation list in `cert` that begins with `beginning`, with what follows a NUL.
std::string wholeCrlUrl(X509* cert, const char* beginning) {
    const PointsPtr points(static_cast<CRL_DIST_POINTS*>(
        X509_get_ext_d2i(cert, NID_crl_distribution_points, nullptr, nullptr)));
    for (int i = 0; i < sk_DIST_POINT_num(points.get()); ++i) {
        const auto* const uri = uriOf(sk_DIST_POINT_value(points.get(), i), beginning);
        if (uri != nullptr) return addressOf(uri);
    }
    return printable(beginning);
}

}  // namespace

const std::vector<Fact> kFacts = {
    {"subject", "subject", subjectOf},
    {"issuer", "issuer", issuerOf},
    {"valid from", "not_before", validFrom},
    {"valid until", "not_after", validUntil},
    {"fingerprint", "fingerprint", fingerprintOf},
    {"names", "subject_alt_names", alternativeNamesOf},
    {"OCSP", "ocsp_url", ocspUrlOf},
    {"CRL", "crl_url", crlUrlOf},
};

std::string takeReason() {
    const unsigned long error = ERR_get_error();
    ERR_clear_error();
    if (ERR_GET_LIB(error) == ERR_LIB_SYS) return std::strerror(ERR_GET_REASON(error));
    const char* const reason = ERR_reason_error_string(error);
    return reason == nullptr ? "no reason given" : reason;
}

CertificateFile readCertificates(const std::string& path) {
    const BioPtr file = openFile(path);
    CertificateFile result{path, "", {}, ""};
    int format = kUnknown;
    while (X509* cert = TARNSSL_load_X509_bio(file.get(), &format)) {
        result.certificates.emplace_back(cert);
    }
    if (result.certificates.empty()) {
        throw Unusable("no certificate in " + path + ": as PEM: " + failureAs(kPem, path) +
                       "; as DER: " + failureAs(kDer, path));
    }
    result.format = format == kPem ? "PEM" : "DER";
    result.damage = takeDamage(format, file.get());
    return result;
}

std::string subjectOf(X509* cert) { return textOf(X509_get_subject_name(cert)); }
std::string issuerOf(X509* cert) { return textOf(X509_get_issuer_name(cert)); }
std::string validFrom(X509* cert) { return textOf(X509_get_notBefore(cert)); }
std::string validUntil(X509* cert) { return textOf(X509_get_notAfter(cert)); }

std::string fingerprintOf(X509* cert) {
    char text[103];
    return TARNSSL_X509_to_fingerprint_str(cert, text, sizeof text) == 1 ? text : "";
}

std::string alternativeNamesOf(X509* cert) {
    std::vector<char> text(1 << 16);
    const int size = static_cast<int>(text.size());
    if (TARNSSL_X509_get_SANs_str(cert, text.data(), size) < 0) return "";
    return text.front() == '\0' ? "(cannot be printed)" : printable(text.data());
}

std::string ocspUrlOf(X509* cert) {
    AUTHORITY_INFO_ACCESS* access = nullptr;
    const ASN1_IA5STRING* const url = TARNSSL_get_ocsp_resp_url_from_aia(cert, &access);
    if (url == nullptr) return "";
    std::string text = addressOf(url);
    sk_ACCESS_DESCRIPTION_pop_free(access, ACCESS_DESCRIPTION_free);
    return text;
}

// The library does not tell how long the address is, which may itself hold a NUL: what is shown is
// the certificate's own copy of it.
std::string crlUrlOf(X509* cert) {
    const unsigned char* const url = TARNSSL_X509_get_first_crl_dp(cert);
    return url == nullptr ? "" : wholeCrlUrl(cert, reinterpret_cast<const char*>(url));
}

}  // namespace tarnutil_command
