// What OpenSSL's error queue holds after each function and outcome: docs/certificates.md has the
// same rows.
#include <gmock/gmock.h>
#include <tarnutil/cert.h>

#include <functional>

#include "builder.h"
#include "scratch_dir.h"

namespace tarnutil_test {
namespace {

// What a queue that held one stale error at the start holds at the end.
enum class Queue {
    stale,         // only the stale error
    empty,         // nothing
    staleAndMore,  // the stale error, and what went wrong behind it
    onlyMore,      // what went wrong; the stale error was cleared
};

std::string path(const char* name) { return material(name); }
template <class Owner, class Object>
bool loaded(Object* object) {
    return Owner(object) != nullptr;
}

bool readsCert(const char* name, int format) {
    const std::string bytes = readFile(path(name));
    return loaded<X509Ptr>(
        TARNSSL_load_X509_buf(bytes.data(), static_cast<int>(bytes.size()), &format));
}
bool readsRequest(const char* name, int format) {
    const std::string bytes = readFile(path(name));
    const BioPtr bio = reading(bytes);
    return loaded<RequestPtr>(TARNSSL_load_X509_REQ_bio(bio.get(), &format));
}
bool readsCrl(const char* name) {
    return loaded<CrlPtr>(TARNSSL_load_X509_CRL_file(path(name).c_str()));
}
bool readsKey(const char* name, const char* password) {
    return loaded<EvpPkeyPtr>(
        TARNSSL_load_PrivateKey_file(path(name).c_str(), const_cast<char*>(password)));
}
bool readsRsa(const char* name) {
    return loaded<RsaPtr>(TARNSSL_load_RSA_file(path(name).c_str(), nullptr));
}
bool usesChain(const char* name) {
    const SslCtxPtr ctx(SSL_CTX_new(SSLv23_method()));
    return TARNSSL_CTX_use_certificate_chain_file(ctx.get(), path(name).c_str()) == 1;
}
bool usesDamagedChain() {
    const ScratchDir dir;
    const SslCtxPtr ctx(SSL_CTX_new(SSLv23_method()));
    const std::string chain =
        dir.write("chain", readFile(path("leaf.pem")) + readFile(path("cut_short.pem")));
    return TARNSSL_CTX_use_certificate_chain_file(ctx.get(), chain.c_str()) == 1;
}
bool holdsIssuerOfLeaf(const char* name) {
    return TARNSSL_cert_contain_issuer_of(path(name).c_str(), certificate("leaf.pem").get()) == 1;
}
bool holdsOwnIssuer(const char* name) {
    return TARNSSL_cert_contain_issuer(path(name).c_str()) == 1;
}
bool verifies(const char* issuer) {
    return TARNSSL_verify_issuer(certificate(issuer).get(), certificate("leaf.pem").get()) == 1;
}
bool hasResponder(const char* name) {
    AUTHORITY_INFO_ACCESS* out = nullptr;
    if (TARNSSL_get_ocsp_resp_url_from_aia(certificate(name).get(), &out) == nullptr) return false;
    sk_ACCESS_DESCRIPTION_pop_free(out, ACCESS_DESCRIPTION_free);
    return true;
}
bool hasUndecodableResponder() {
    AUTHORITY_INFO_ACCESS* out = nullptr;
    const X509Ptr cert = makeCertificate({{NID_info_access, "\x30\x03\x02\x01"}});
    ERR_put_error(ERR_LIB_USER, 0, 1, "stale", 1);
    return TARNSSL_get_ocsp_resp_url_from_aia(cert.get(), &out) != nullptr;
}
bool hasNames(const char* name) {
    char buffer[100];
    return TARNSSL_X509_get_SANs_str(certificate(name).get(), buffer, sizeof buffer) >= 0;
}

struct QueueCase {
    const char* function;
    const char* outcome;
    std::function<bool()> run;
    bool succeeds;
    Queue queue;
};
// clang-format off
const QueueCase kQueueCases[] = {
    // function                      outcome                                  run                                               good   queue
    {"load_X509_*",                  "PEM found",                             [] { return readsCert("leaf.pem", 0); },          true,  Queue::stale},
    {"load_X509_*",                  "DER found",                             [] { return readsCert("leaf.der", 0); },          true,  Queue::empty},
    {"load_X509_*",                  "neither",                               [] { return readsCert("rsa.pem", 0); },           false, Queue::onlyMore},
    {"load_X509_*",                  "an empty input",                        [] { return readsCert("empty", 0); },             false, Queue::empty},
    {"load_X509_*",                  "format 1, is PEM",                      [] { return readsCert("leaf.pem", 1); },          true,  Queue::stale},
    {"load_X509_*",                  "format 1, is DER",                      [] { return readsCert("leaf.der", 1); },          false, Queue::staleAndMore},
    {"load_X509_*",                  "format 2, is DER",                      [] { return readsCert("leaf.der", 2); },          true,  Queue::stale},
    {"load_X509_*",                  "format 2, is PEM",                      [] { return readsCert("leaf.pem", 2); },          false, Queue::staleAndMore},
    {"load_X509_REQ_*",              "PEM found",                             [] { return readsRequest("named.req.pem", 0); },  true,  Queue::stale},
    {"load_X509_REQ_*",              "DER found",                             [] { return readsRequest("named.req.der", 0); },  true,  Queue::empty},
    {"load_X509_REQ_*",              "neither",                               [] { return readsRequest("leaf.pem", 0); },       false, Queue::onlyMore},
    {"load_X509_REQ_*",              "format 1, is DER",                      [] { return readsRequest("named.req.der", 1); },  false, Queue::staleAndMore},
    {"load_X509_CRL_*",              "PEM found",                             [] { return readsCrl("root.crl.pem"); },          true,  Queue::stale},
    {"load_X509_CRL_*",              "DER found",                             [] { return readsCrl("root.crl.der"); },          true,  Queue::empty},
    {"load_X509_CRL_*",              "neither",                               [] { return readsCrl("leaf.pem"); },              false, Queue::onlyMore},
    {"load_*_file",                  "the file cannot be opened",             [] { return readsCrl("missing"); },               false, Queue::staleAndMore},
    {"load_PrivateKey_*",            "PEM",                                   [] { return readsKey("rsa.pem", nullptr); },      true,  Queue::stale},
    {"load_PrivateKey_*",            "DER",                                   [] { return readsKey("rsa.pkcs8.der", nullptr); }, true, Queue::empty},
    {"load_PrivateKey_*",            "a wrong password",                      [] { return readsKey("rsa.locked.pem", "no"); },  false, Queue::staleAndMore},
    {"load_PrivateKey_*",            "a damaged block",                       [] { return readsKey("damaged.pem", nullptr); },  false, Queue::staleAndMore},
    {"load_PrivateKey_*",            "no block, and no DER key",              [] { return readsKey("leaf.der", nullptr); },     false, Queue::onlyMore},
    {"load_RSA_*",                   "a key of another algorithm",            [] { return readsRsa("ec.pem"); },                false, Queue::staleAndMore},
    {"CTX_use_certificate_chain_file", "success",                             [] { return usesChain("chain.pem"); },            true,  Queue::empty},
    {"CTX_use_certificate_chain_file", "the file cannot be opened",           [] { return usesChain("missing"); },              false, Queue::onlyMore},
    {"CTX_use_certificate_chain_file", "no first certificate",                [] { return usesChain("rsa.pem"); },              false, Queue::onlyMore},
    {"CTX_use_certificate_chain_file", "a damaged block behind the first",    usesDamagedChain,                                 false, Queue::onlyMore},
    {"CTX_use_certificate_chain_file", "one certificate in DER",              [] { return usesChain("leaf.der"); },             false, Queue::empty},
    {"verify_issuer",                "yes",                                   [] { return verifies("issuing.pem"); },           true,  Queue::stale},
    {"verify_issuer",                "no, by its name",                       [] { return verifies("unrelated.pem"); },         false, Queue::stale},
    {"cert_contain_issuer_of",       "found",                                 [] { return holdsIssuerOfLeaf("chain.pem"); },    true,  Queue::stale},
    {"cert_contain_issuer_of",       "not found in PEM",                      [] { return holdsIssuerOfLeaf("stranger.pem"); }, false, Queue::staleAndMore},
    {"cert_contain_issuer_of",       "not found in DER",                      [] { return holdsIssuerOfLeaf("leaf.der"); },     false, Queue::empty},
    {"cert_contain_issuer",          "found",                                 [] { return holdsOwnIssuer("chain.pem"); },       true,  Queue::empty},
    {"cert_contain_issuer",          "not found",                             [] { return holdsOwnIssuer("stranger.pem"); },    false, Queue::empty},
    {"cert_contain_issuer",          "the file cannot be opened",             [] { return holdsOwnIssuer("missing"); },         false, Queue::staleAndMore},
    {"get_ocsp_resp_url_from_aia",   "found",                                 [] { return hasResponder("leaf.pem"); },          true,  Queue::stale},
    {"get_ocsp_resp_url_from_aia",   "no extension",                          [] { return hasResponder("root.pem"); },          false, Queue::stale},
    {"get_ocsp_resp_url_from_aia",   "an extension that does not decode",     hasUndecodableResponder,                          false, Queue::staleAndMore},
    {"X509_get_SANs_str",            "printed",                               [] { return hasNames("leaf.pem"); },              true,  Queue::stale},
    {"X509_get_SANs_str",            "no extension",                          [] { return hasNames("root.pem"); },              false, Queue::stale},
};
// clang-format on

Queue stateOf(const std::vector<std::string>& errors) {
    const std::string stale = std::to_string(ERR_LIB_USER) + ":1";
    if (errors.empty()) return Queue::empty;
    if (errors.front() != stale) return Queue::onlyMore;
    return errors.size() == 1 ? Queue::stale : Queue::staleAndMore;
}

TEST(CertQueueTest, HoldsWhatTheDocumentSays) {
    for (const QueueCase& row : kQueueCases) {
        ERR_clear_error();
        ERR_put_error(ERR_LIB_USER, 0, 1, "stale", 1);
        const bool good = row.run();
        const std::vector<std::string> errors = drainErrors();
        EXPECT_EQ(good, row.succeeds) << row.function << ": " << row.outcome;
        EXPECT_EQ(stateOf(errors), row.queue)
            << row.function << ": " << row.outcome << " " << testing::PrintToString(errors);
    }
}

}  // namespace
}  // namespace tarnutil_test
