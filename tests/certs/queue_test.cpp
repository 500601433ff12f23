// SPDX-License-Identifier: Apache-2.0
// What OpenSSL's error queue holds after each function and outcome. The table itself stands in
// docs/certificates.md and is read from there: here stands how each of its rows is brought about.
#include <gmock/gmock.h>
#include <tarnutil/cert.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <iterator>

#include "builder.h"
#include "document.h"
#include "fault.h"
#include "scratch_dir.h"

namespace tarnutil_test {
namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Matcher;
using testing::Not;
using testing::StartsWith;

// The error that is in the queue before the library is called.
const std::string kStale = std::to_string(ERR_LIB_USER) + ":1";

void putStale() {
    ERR_clear_error();
    ERR_put_error(ERR_LIB_USER, 0, 1, "stale", 1);
}

// Results as the document tells them. What was loaded is released.
std::string told(int result) { return std::to_string(result); }
std::string told(const ASN1_IA5STRING* url) { return url == nullptr ? "NULL" : "an address"; }
template <class Object, void (*Free)(Object*)>
std::string toldLoaded(Object* object) {
    return std::unique_ptr<Object, FreeWith<Free>>(object) == nullptr ? "NULL" : "an object";
}
std::string told(X509* cert) { return toldLoaded<X509, X509_free>(cert); }
std::string told(X509_REQ* request) { return toldLoaded<X509_REQ, X509_REQ_free>(request); }
std::string told(X509_CRL* list) { return toldLoaded<X509_CRL, X509_CRL_free>(list); }
std::string told(EVP_PKEY* key) { return toldLoaded<EVP_PKEY, EVP_PKEY_free>(key); }
std::string told(RSA* key) { return toldLoaded<RSA, RSA_free>(key); }

// One way to an outcome: calls the library once and tells the result.
using Way = std::function<std::string()>;
using Ways = std::vector<Way>;

template <class Read>
Way fromBio(const std::string& name, Read read) {
    return [=] {
        const std::string bytes = readFile(material(name));
        const BioPtr bio = reading(bytes);
        return told(read(bio.get()));
    };
}
template <class Read>
Way fromFile(const std::string& name, Read read) {
    return [=] { return told(read(material(name).c_str())); };
}
Way certFromBuffer(const std::string& name, int format) {
    return [=] {
        const std::string bytes = readFile(material(name));
        int asked = format;
        return told(TARNSSL_load_X509_buf(bytes.data(), static_cast<int>(bytes.size()), &asked));
    };
}
Way certFromBio(const std::string& name, int format) {
    return fromBio(name, [=](BIO* bio) {
        int asked = format;
        return TARNSSL_load_X509_bio(bio, &asked);
    });
}
Way requestFromBio(const std::string& name, int format) {
    return fromBio(name, [=](BIO* bio) {
        int asked = format;
        return TARNSSL_load_X509_REQ_bio(bio, &asked);
    });
}

// Every reader that finds the format out.
Ways foundOut(const char* cert, const char* request, const char* list) {
    return {certFromBio(cert, 0),
            certFromBuffer(cert, 0),
            fromBio(cert, [](BIO* bio) { return TARNSSL_load_X509_bio(bio, nullptr); }),
            fromFile(cert, TARNSSL_load_X509_file),
            requestFromBio(request, 0),
            fromBio(request, [](BIO* bio) { return TARNSSL_load_X509_REQ_bio(bio, nullptr); }),
            fromFile(request, TARNSSL_load_X509_REQ_file),
            fromBio(list, TARNSSL_load_X509_CRL_bio),
            fromFile(list, TARNSSL_load_X509_CRL_file)};
}
// Every reader that is told the format.
Ways asked(int format, const char* cert, const char* request) {
    return {certFromBio(cert, format), certFromBuffer(cert, format),
            requestFromBio(request, format)};
}

// Each reader that is told the format and goes on in a BIO, behind the only object in it.
Ways nothingLeft(int format, const char* cert, const char* request) {
    const auto behindIt = [=](auto* (*read)(BIO*, int*)) {
        return [=](BIO* bio) {
            int asked = format;
            EXPECT_EQ(told(read(bio, &asked)), "an object");
            return read(bio, &asked);
        };
    };
    return {fromBio(cert, behindIt(TARNSSL_load_X509_bio)), certFromBuffer("empty", format),
            fromBio(request, behindIt(TARNSSL_load_X509_REQ_bio))};
}

char* secret(const char* text) { return const_cast<char*>(text); }
Ways rsaReaders(const char* name, const char* password) {
    return {fromBio(name, [=](BIO* bio) { return TARNSSL_load_RSA_bio(bio, secret(password)); }),
            fromFile(name, [=](const char* path) {
                return TARNSSL_load_RSA_file(path, secret(password));
            })};
}
Ways keyReaders(const char* name, const char* password) {
    Ways ways = rsaReaders(name, password);
    ways.push_back(fromBio(
        name, [=](BIO* bio) { return TARNSSL_load_PrivateKey_bio(bio, secret(password)); }));
    ways.push_back(fromFile(name, [=](const char* path) {
        return TARNSSL_load_PrivateKey_file(path, secret(password));
    }));
    return ways;
}
template <class Key>
Way behindTheKey(Key* (*read)(BIO*, void*)) {
    return fromBio("rsa.pem", [=](BIO* bio) {
        EXPECT_EQ(told(read(bio, nullptr)), "an object");
        return read(bio, nullptr);
    });
}
Ways inEither(Ways these, const Ways& those) {
    these.insert(these.end(), those.begin(), those.end());
    return these;
}
const char* const kDirectory = ".";  // which can be opened, but not read
Ways fileReaders(const char* name) {
    Ways ways = {
        fromFile(name,
                 [](const char* path) { return TARNSSL_load_PrivateKey_file(path, nullptr); }),
        fromFile(name, [](const char* path) { return TARNSSL_load_RSA_file(path, nullptr); })};
    ways.push_back(fromFile(name, TARNSSL_load_X509_file));
    ways.push_back(fromFile(name, TARNSSL_load_X509_REQ_file));
    ways.push_back(fromFile(name, TARNSSL_load_X509_CRL_file));
    return ways;
}
// A DER key in a pipe, which cannot be rewound.
std::string keyFromPipe() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const std::string der = readFile(material("rsa.pkcs8.der"));
    EXPECT_EQ(write(ends[1], der.data(), der.size()), static_cast<ssize_t>(der.size()));
    EXPECT_EQ(close(ends[1]), 0);
    const BioPtr bio(BIO_new_fd(ends[0], BIO_CLOSE));
    return told(TARNSSL_load_PrivateKey_bio(bio.get(), nullptr));
}

// A file put together of the named parts, for as long as it lives.
class Joined {
public:
    explicit Joined(const std::vector<const char*>& parts) {
        std::string content;
        for (const char* part : parts) content += readFile(material(part));
        name = dir.write("joined", content);
    }
    const char* path() const { return name.c_str(); }

private:
    const ScratchDir dir;
    std::string name;
};
template <class Ask>
Way joined(const std::vector<const char*>& parts, Ask ask) {
    return [=] {
        const Joined file(parts);
        putStale();
        return told(ask(file.path()));
    };
}

// Calls `use` with a context that `prepare` made ready.
template <class Prepare, class Use>
Way inContext(Prepare prepare, const std::string& name, Use use) {
    return [=] {
        const SslCtxPtr ctx(SSL_CTX_new(SSLv23_method()));
        prepare(ctx.get());
        putStale();
        return told(use(ctx.get(), material(name).c_str()));
    };
}
void asItIs(SSL_CTX* /*ctx*/) {}
void withoutWeakKeys(SSL_CTX* ctx) { SSL_CTX_set_security_level(ctx, 5); }
void withAnotherKey(SSL_CTX* ctx) {
    EXPECT_EQ(TARNSSL_CTX_use_PrivateKey_file(ctx, material("ec.pem").c_str(), nullptr), 1);
}
void withTheLeaf(SSL_CTX* ctx) {
    EXPECT_EQ(TARNSSL_CTX_use_certificate_file(ctx, material("leaf.pem").c_str()), 1);
}
void permittingWithAnError(SSL_CTX* ctx) {
    SSL_CTX_set_security_callback(ctx, [](const SSL*, const SSL_CTX*, int, int, int, void*, void*) {
        ERR_put_error(ERR_LIB_USER, 0, 2, "permitted", 1);
        return 1;
    });
}

template <class Prepare>
Way usesCert(Prepare prepare, const char* name) {
    return inContext(prepare, name, TARNSSL_CTX_use_certificate_file);
}
template <class Prepare>
Way usesKey(Prepare prepare, const char* name, const char* password = nullptr) {
    return inContext(prepare, name, [=](SSL_CTX* ctx, const char* path) {
        return TARNSSL_CTX_use_PrivateKey_file(ctx, path, secret(password));
    });
}
template <class Prepare>
Way usesChain(Prepare prepare, const char* name) {
    return inContext(prepare, name, TARNSSL_CTX_use_certificate_chain_file);
}
Way usesChain(const std::vector<const char*>& parts) {
    return joined(parts, [](const char* path) {
        const SslCtxPtr ctx(SSL_CTX_new(SSLv23_method()));
        putStale();
        return TARNSSL_CTX_use_certificate_chain_file(ctx.get(), path);
    });
}

// `run` with a call that fails without queueing anything.
Way failing(Call call, unsigned long nth, const Way& run) {
    return [=] {
        const Fault fault(call, 0, nth);
        const std::string result = run();
        EXPECT_TRUE(fault.hasFired());
        return result;
    };
}

std::string verifies(const X509Ptr& issuer, const X509Ptr& subject) {
    putStale();
    return told(TARNSSL_verify_issuer(issuer.get(), subject.get()));
}
X509Ptr forged() {
    X509Ptr cert = makeCertificate({});
    const EvpPkeyPtr key(TARNSSL_load_PrivateKey_file(material("leaf.key.pem").c_str(), nullptr));
    EXPECT_GT(X509_sign(cert.get(), key.get(), EVP_sha256()), 0);
    return cert;
}
// A certificate whose key is of an algorithm that nobody knows.
X509Ptr withoutAReadableKey() {
    const BioPtr encoded(BIO_new(BIO_s_mem()));
    EXPECT_EQ(i2d_X509_bio(encoded.get(), makeCertificate({}).get()), 1);
    char* data = nullptr;
    const long length = BIO_get_mem_data(encoded.get(), &data);
    const std::string known = "\x2A\x86\x48\xCE\x3D\x02\x01";  // EC keys
    char* const algorithm = std::search(data, data + length, known.begin(), known.end());
    EXPECT_NE(algorithm, data + length);
    algorithm[known.size() - 1] = '\x7F';
    return X509Ptr(d2i_X509_bio(encoded.get(), nullptr));
}
int issuerOfLeafIn(const char* path) {
    return TARNSSL_cert_contain_issuer_of(path, certificate("leaf.pem").get());
}
int issuerOfNothingIn(const char* path) { return TARNSSL_cert_contain_issuer_of(path, nullptr); }
Way issuerOfLeaf(const std::vector<const char*>& parts) { return joined(parts, issuerOfLeafIn); }
Way ownIssuer(const std::vector<const char*>& parts) {
    return joined(parts, TARNSSL_cert_contain_issuer);
}
// The first certificate loads, by as many BIOs as OpenSSL takes, and the chain's is the next.
std::string ownIssuerWithoutTheSecondFile() {
    const unsigned long before = Fault::calls(Call::BIO_new);
    EXPECT_EQ(told(TARNSSL_load_X509_file(material("chain.pem").c_str())), "an object");
    const unsigned long taken = Fault::calls(Call::BIO_new) - before;
    return failing(Call::BIO_new, taken + 1, ownIssuer({"chain.pem"}))();
}

const char* const kUndecodable = "\x30\x03\x02\x01";

Way responder(const std::vector<Extension>& extensions) {
    return [=] {
        AUTHORITY_INFO_ACCESS* out = nullptr;
        const X509Ptr cert = makeCertificate(extensions);
        putStale();
        const ASN1_IA5STRING* const url = TARNSSL_get_ocsp_resp_url_from_aia(cert.get(), &out);
        if (url != nullptr) sk_ACCESS_DESCRIPTION_pop_free(out, ACCESS_DESCRIPTION_free);
        return told(url);
    };
}
Extension access(const char* url, bool critical = false) {
    return authorityInfoAccess({{Method::ocsp, uri(url)}}, critical);
}
Way fingerprint(std::size_t size) {
    return [=] {
        char buffer[103];
        const X509Ptr cert = certificate("leaf.pem");
        putStale();
        return told(TARNSSL_X509_to_fingerprint_str(cert.get(), buffer, size));
    };
}
Way listAddress(const std::vector<Extension>& extensions) {
    return [=] {
        X509Ptr cert = makeCertificate(extensions);
        putStale();
        return firstCrlAddress(std::move(cert)).empty() ? "NULL" : "an address";
    };
}
Extension points(const std::string& location) {
    return distributionPoints({fullNamePoint({location})});
}
std::string namesOf(const X509Ptr& cert) {
    char buffer[100];
    putStale();
    return told(TARNSSL_X509_get_SANs_str(cert.get(), buffer, sizeof buffer));
}
Way names(const std::vector<Extension>& extensions) {
    return [=] { return namesOf(makeCertificate(extensions)); };
}
Way namesWithoutABio() {
    return [] {
        const X509Ptr cert = certificate("leaf.pem");
        const Fault fault(Call::BIO_new);
        return namesOf(cert);
    };
}
Way requestedNames(RequestPtr (*request)()) {
    return [=] {
        char buffer[100];
        const RequestPtr asking = request();
        putStale();
        TARNSSL_X509_REQ_get_SANs_str(asking.get(), buffer, sizeof buffer);
        return std::string(buffer[0] == '\0' ? "an empty text" : "a text");
    };
}
// A request whose list of extensions is a list of something else.
RequestPtr withoutExtensions() {
    const std::string list = tlv(0x30, tlv(0x05, ""));
    RequestPtr request(X509_REQ_new());
    EXPECT_EQ(X509_REQ_add1_attr_by_NID(request.get(), NID_ext_req, V_ASN1_SEQUENCE,
                                        reinterpret_cast<const unsigned char*>(list.data()),
                                        static_cast<int>(list.size())),
              1);
    return request;
}

struct QueueCase {
    const char* function;
    const char* outcome;
    Ways ways;
};
const char* const kLoaders = "load_X509_*, load_X509_REQ_*, load_X509_CRL_*";
const char* const kAskedLoaders = "load_X509_bio, load_X509_buf, load_X509_REQ_bio";
const char* const kKeyLoaders = "load_PrivateKey_*, load_RSA_*";
const char* const kNextKeyLoaders = "load_PrivateKey_bio, load_RSA_bio";
const char* const kUseCert = "CTX_use_certificate_file";
const char* const kUseKey = "CTX_use_PrivateKey_file";
const char* const kUseChain = "CTX_use_certificate_chain_file";
const char* const kIssuerOf = "cert_contain_issuer_of";
const char* const kOwnIssuer = "cert_contain_issuer";
const char* const kResponder = "get_ocsp_resp_url_from_aia";
const char* const kFingerprint = "X509_to_fingerprint_str";
const char* const kListAddress = "X509_get_first_crl_dp";
const char* const kNames = "X509_get_SANs_str";
const char* const kRequestNames = "X509_REQ_get_SANs_str";
// clang-format off
const QueueCase kQueueCases[] = {
    // function             outcome                                    ways to it
    {kLoaders,              "PEM",                                     foundOut("leaf.pem", "named.req.pem", "root.crl.pem")},
    {kLoaders,              "DER",                                     foundOut("leaf.der", "named.req.der", "root.crl.der")},
    {kLoaders,              "neither",                                 foundOut("rsa.pem", "rsa.pem", "rsa.pem")},
    {kLoaders,              "damaged PEM",                             foundOut("cut_short.pem", "cut_short.pem", "cut_short.pem")},
    {kLoaders,              "a locked block",                          foundOut("locked.pem", "locked.req.pem", "locked.crl.pem")},
    {kLoaders,              "an empty input",                          foundOut("empty", "empty", "empty")},
    {kAskedLoaders,         "PEM, as asked for",                       asked(1, "leaf.pem", "named.req.pem")},
    {kAskedLoaders,         "PEM asked for, is DER",                   asked(1, "leaf.der", "named.req.der")},
    {kAskedLoaders,         "PEM asked for, is a locked block",        asked(1, "locked.pem", "locked.req.pem")},
    {kAskedLoaders,         "DER, as asked for",                       asked(2, "leaf.der", "named.req.der")},
    {kAskedLoaders,         "DER asked for, is PEM",                   asked(2, "leaf.pem", "named.req.pem")},
    {kAskedLoaders,         "PEM asked for, nothing left",             nothingLeft(1, "leaf.pem", "named.req.pem")},
    {kAskedLoaders,         "DER asked for, nothing left",             nothingLeft(2, "leaf.der", "named.req.der")},
    {"load_X509_buf",       "no BIO for the bytes",                    {failing(Call::BIO_new_mem_buf, 1, certFromBuffer("leaf.pem", 0))}},
    {"load_*_file",         "the file cannot be opened",               fileReaders("missing")},
    {"load_*_file",         "a directory",                             fileReaders(kDirectory)},
    {kKeyLoaders,           "PEM",                                     keyReaders("rsa.pem", nullptr)},
    {kKeyLoaders,           "locked PEM, its password",                keyReaders("rsa.locked.pem", "secret")},
    {kKeyLoaders,           "PEM behind a certificate",                keyReaders("server.pem", nullptr)},
    {kKeyLoaders,           "DER",                                     keyReaders("rsa.pkcs8.der", nullptr)},
    {kKeyLoaders,           "locked PEM, another password",            keyReaders("rsa.traditional.locked.pem", "no")},
    {kKeyLoaders,           "locked PEM, no password",                 keyReaders("rsa.locked.pem", nullptr)},
    {kKeyLoaders,           "damaged PEM",                             keyReaders("damaged.pem", nullptr)},
    {kKeyLoaders,           "PEM of something else",                   keyReaders("leaf.pem", nullptr)},
    {kKeyLoaders,           "no PEM, and no DER key",                  keyReaders("leaf.der", nullptr)},
    {kKeyLoaders,           "locked DER, whatever the password",       inEither(keyReaders("rsa.locked.der", "secret"), keyReaders("rsa.locked.der", nullptr))},
    {kKeyLoaders,           "an empty input",                          keyReaders("empty", nullptr)},
    {kKeyLoaders,           "DER in a pipe",                           {keyFromPipe}},
    {kNextKeyLoaders,       "nothing left behind PEM",                 {behindTheKey(TARNSSL_load_PrivateKey_bio), behindTheKey(TARNSSL_load_RSA_bio)}},
    {"load_RSA_*",          "a key of another algorithm, PEM",         rsaReaders("ec.pem", nullptr)},
    {"load_RSA_*",          "a key of another algorithm, DER",         rsaReaders("ec.pkcs8.der", nullptr)},
    {kUseCert,              "PEM",                                     {usesCert(asItIs, "leaf.pem")}},
    {kUseCert,              "DER",                                     {usesCert(asItIs, "leaf.der")}},
    {kUseCert,              "the context had a key of another",        {usesCert(withAnotherKey, "leaf.pem")}},
    {kUseCert,              "no certificate",                          {usesCert(asItIs, "rsa.pem"), usesCert(asItIs, "locked.pem")}},
    {kUseCert,              "an empty file",                           {usesCert(asItIs, "empty")}},
    {kUseCert,              "a directory",                             {usesCert(asItIs, kDirectory)}},
    {kUseCert,              "the file cannot be opened",               {usesCert(asItIs, "missing")}},
    {kUseCert,              "the context refuses it",                  {usesCert(withoutWeakKeys, "leaf.pem")}},
    {kUseKey,               "PEM",                                     {usesKey(asItIs, "ec.pem")}},
    {kUseKey,               "locked PEM, its password",                {usesKey(asItIs, "rsa.locked.pem", "secret")}},
    {kUseKey,               "DER",                                     {usesKey(asItIs, "ec.pkcs8.der")}},
    {kUseKey,               "no key",                                  {usesKey(asItIs, "leaf.der")}},
    {kUseKey,               "an empty file",                           {usesKey(asItIs, "empty")}},
    {kUseKey,               "a directory",                             {usesKey(asItIs, kDirectory)}},
    {kUseKey,               "another password",                        {usesKey(asItIs, "rsa.traditional.locked.pem", "no")}},
    {kUseKey,               "no password",                             {usesKey(asItIs, "rsa.locked.pem")}},
    {kUseKey,               "damaged PEM",                             {usesKey(asItIs, "damaged.pem")}},
    {kUseKey,               "the file cannot be opened",               {usesKey(asItIs, "missing")}},
    {kUseKey,               "not the certificate's key",               {usesKey(withTheLeaf, "ec.pem")}},
    {kUseChain,             "success",                                 {usesChain(asItIs, "chain.pem")}},
    {kUseChain,             "no BIO for the file",                     {failing(Call::BIO_new, 1, usesChain(asItIs, "chain.pem"))}},
    {kUseChain,             "the file cannot be opened",               {usesChain(asItIs, "missing")}},
    {kUseChain,             "no first certificate",                    {usesChain(asItIs, "rsa.pem"), usesChain(asItIs, "locked.pem"), usesChain({"cut_short.pem", "leaf.pem"})}},
    {kUseChain,             "an empty file",                           {usesChain(asItIs, "empty")}},
    {kUseChain,             "a directory",                             {usesChain(asItIs, kDirectory)}},
    {kUseChain,             "the context refuses the first",           {usesChain(withoutWeakKeys, "chain.pem")}},
    {kUseChain,             "the context takes it, with an error",     {usesChain(permittingWithAnError, "chain.pem")}},
    {kUseChain,             "a following one cannot be added",         {failing(Call::SSL_CTX_ctrl, 2, usesChain(asItIs, "chain.pem"))}},
    {kUseChain,             "damage behind the first",                 {usesChain({"leaf.pem", "cut_short.pem"})}},
    {kUseChain,             "a locked block behind the first",         {usesChain({"leaf.pem", "locked.pem"})}},
    {kUseChain,             "DER",                                     {usesChain(asItIs, "leaf.der"), usesChain(asItIs, "chain.der")}},
    {kUseChain,             "damage behind DER",                       {usesChain({"leaf.der", "rsa.pem"})}},
    {"verify_issuer",       "yes",                                     {[] { return verifies(certificate("issuing.pem"), certificate("leaf.pem")); }}},
    {"verify_issuer",       "no, by its name",                         {[] { return verifies(certificate("unrelated.pem"), certificate("leaf.pem")); }}},
    {"verify_issuer",       "no, by its signature",                    {[] { return verifies(makeCertificate({}), forged()); }}},
    {"verify_issuer",       "no, the issuer has no readable key",      {[] { return verifies(withoutAReadableKey(), makeCertificate({})); }}},
    {"verify_issuer",       "NULL given",                              {[] { return verifies(nullptr, certificate("leaf.pem")); },
                                                                        [] { return verifies(certificate("leaf.pem"), nullptr); }}},
    {kIssuerOf,             "found in PEM",                            {issuerOfLeaf({"chain.pem"})}},
    {kIssuerOf,             "found in DER",                            {issuerOfLeaf({"chain.der"})}},
    {kIssuerOf,             "found behind a namesake, PEM",            {issuerOfLeaf({"namesake.pem", "issuing.pem"})}},
    {kIssuerOf,             "found behind a namesake, DER",            {issuerOfLeaf({"namesake.der", "issuing.der"})}},
    {kIssuerOf,             "not found in PEM",                        {issuerOfLeaf({"stranger.pem"})}},
    {kIssuerOf,             "not found in DER",                        {issuerOfLeaf({"leaf.der"})}},
    {kIssuerOf,             "a namesake, not found in PEM",            {issuerOfLeaf({"namesake.pem"}), issuerOfLeaf({"namesake.pem", "root.pem"})}},
    {kIssuerOf,             "a namesake, not found in DER",            {issuerOfLeaf({"namesake.der"}), issuerOfLeaf({"namesake.der", "root.der"})}},
    {kIssuerOf,             "damage behind PEM",                       {issuerOfLeaf({"leaf.pem", "cut_short.pem"})}},
    {kIssuerOf,             "a locked block behind PEM",               {issuerOfLeaf({"leaf.pem", "locked.pem"})}},
    {kIssuerOf,             "damage behind DER",                       {issuerOfLeaf({"leaf.der", "rsa.pem"})}},
    {kIssuerOf,             "no certificate",                          {issuerOfLeaf({"rsa.pem"}), issuerOfLeaf({"locked.pem"})}},
    {kIssuerOf,             "an empty file",                           {issuerOfLeaf({})}},
    {kIssuerOf,             "a directory",                             {fromFile(kDirectory, issuerOfLeafIn)}},
    {kIssuerOf,             "the file cannot be opened",               {fromFile("missing", issuerOfLeafIn)}},
    {kIssuerOf,             "NULL given",                              {fromFile("leaf.pem", issuerOfNothingIn)}},
    {kIssuerOf,             "NULL given, and the file cannot be opened", {fromFile("missing", issuerOfNothingIn)}},
    {kOwnIssuer,            "found",                                   {ownIssuer({"chain.pem"})}},
    {kOwnIssuer,            "found behind a namesake",                 {ownIssuer({"leaf.pem", "namesake.pem", "issuing.pem"})}},
    {kOwnIssuer,            "not found",                               {ownIssuer({"stranger.pem"})}},
    {kOwnIssuer,            "a namesake, not found",                   {ownIssuer({"leaf.pem", "namesake.pem"})}},
    {kOwnIssuer,            "no BIO for the file",                     {ownIssuerWithoutTheSecondFile}},
    {kOwnIssuer,            "a following one cannot be added",         {failing(Call::SSL_CTX_ctrl, 2, ownIssuer({"chain.pem"}))}},
    {kOwnIssuer,            "damage behind the first",                 {ownIssuer({"leaf.pem", "cut_short.pem"})}},
    {kOwnIssuer,            "a locked block behind the first",         {ownIssuer({"leaf.pem", "locked.pem"})}},
    {kOwnIssuer,            "DER",                                     {ownIssuer({"chain.der"})}},
    {kOwnIssuer,            "no first certificate",                    {ownIssuer({"rsa.pem"}), ownIssuer({"locked.pem"})}},
    {kOwnIssuer,            "an empty file",                           {ownIssuer({})}},
    {kOwnIssuer,            "a directory",                             {fromFile(kDirectory, TARNSSL_cert_contain_issuer)}},
    {kOwnIssuer,            "the context refuses the first",           {ownIssuer({"weak.pem", "weak.pem"})}},
    {kOwnIssuer,            "the file cannot be opened",               {fromFile("missing", TARNSSL_cert_contain_issuer)}},
    {kResponder,            "found",                                   {responder({access("http://a/")})}},
    {kResponder,            "found behind one that does not decode",   {responder({{NID_info_access, kUndecodable}, access("http://a/")})}},
    {kResponder,            "none",                                    {responder({}), responder({access("https://a/")}), responder({access("http://a/", true)})}},
    {kResponder,            "an extension that does not decode",       {responder({{NID_info_access, kUndecodable}})}},
    {kFingerprint,          "success",                                 {fingerprint(103)}},
    {kFingerprint,          "too small a buffer",                      {fingerprint(102), fingerprint(0)}},
    {kFingerprint,          "no digest",                               {failing(Call::X509_digest, 1, fingerprint(103))}},
    {kListAddress,          "found",                                   {listAddress({points(uri("http://a/"))})}},
    {kListAddress,          "none",                                    {listAddress({}), listAddress({points(dns("a"))}),
                                                                        listAddress({points(uri("http://a/")), points(uri("http://a/"))})}},
    {kListAddress,          "an extension that does not decode",       {listAddress({{NID_crl_distribution_points, kUndecodable}})}},
    {kNames,                "printed",                                 {names({subjectAltName({dns("a")})})}},
    {kNames,                "no extension",                            {names({})}},
    {kNames,                "an extension that does not decode",       {names({{NID_subject_alt_name, kUndecodable}})}},
    {kNames,                "a name that holds a NUL",                 {names({subjectAltName({dns(std::string("a\0b", 3))})})}},
    {kNames,                "no BIO to print to",                      {namesWithoutABio()}},
    {kRequestNames,         "printed",                                 {requestedNames([] { return makeRequest({subjectAltName({dns("a")})}); })}},
    {kRequestNames,         "no names asked for",                      {requestedNames([] { return RequestPtr(X509_REQ_new()); }),
                                                                        requestedNames([] { return makeRequest({authorityInfoAccess({})}); })}},
    {kRequestNames,         "extensions that do not decode",           {requestedNames(withoutExtensions)}},
    {kRequestNames,         "names that do not decode",                {requestedNames([] { return makeRequest({{NID_subject_alt_name, kUndecodable}}); })}},
    {kRequestNames,         "a name that holds a NUL",                 {requestedNames([] { return makeRequest({subjectAltName({dns(std::string("a\0b", 3))})}); })}},
    {kRequestNames,         "no BIO to print to",                      {failing(Call::BIO_new, 1, requestedNames([] { return makeRequest({subjectAltName({dns("a")})}); }))}},
};
// clang-format on

// What the document calls the errors that are new in the queue.
struct NewErrors {
    const char* documented;
    Matcher<std::vector<std::string>> matcher;
};
const auto kOfDerReader = AllOf(Not(IsEmpty()), Each(StartsWith("13:")));  // ASN.1
// PEM, ASN.1, PKCS#12, the core, providers and decoders: each OpenSSL has its own mixture.
const auto kOfKeyReaders =
    AllOf(Not(IsEmpty()), Each(AnyOf(StartsWith("9:"), StartsWith("13:"), StartsWith("35:"),
                                     StartsWith("15:"), StartsWith("57:"), StartsWith("60:"))));
// clang-format off
const NewErrors kNewErrors[] = {
    {"none",                                    IsEmpty()},
    {"the system's, the BIO's",                 ElementsAre("2:2", StartsWith("32:"))},
    {"PEM, no start line",                      ElementsAre("9:108")},
    {"PEM, bad end line",                       ElementsAre("9:102")},
    {"the providers', PEM, bad decrypt",         ElementsAre(StartsWith("57:"), "9:101")},
    {"the DER reader's",                        kOfDerReader},
    {"the key readers'",                        kOfKeyReaders},
    {"the DER key reader's",                    AllOf(kOfKeyReaders, Contains(StartsWith("13:")))},
    {"ASN.1, of the signature",                 ElementsAre(StartsWith("13:"))},
    {"ASN.1, of the signature; PEM, no start line", ElementsAre(StartsWith("13:"), "9:108")},
    {"EVP, expecting an RSA key",               ElementsAre("6:127")},
    {"EVP, decode error",                       ElementsAre("6:114")},
    {"SSL, key too small",                      ElementsAre("20:399")},
    {"X.509, key values mismatch",              ElementsAre("11:116")},
    {"X.509 v3, no value",                      ElementsAre(StartsWith("34:"))},
    {"its own",                                 ElementsAre("128:2", "128:2")},
    {"the library's, 341",                      ElementsAre("20:7 line 341")},
    {"the system's, the BIO's, the library's, 346", ElementsAre("2:2", StartsWith("32:"), "20:7 line 346")},
    {"the DER reader's, the library's, 352",    ElementsAre(StartsWith("13:"), StartsWith("13:"), "20:7 line 352")},
    {"the system's, the BIO's, the DER reader's", ElementsAre("2:21", StartsWith("32:"), StartsWith("13:"))},
    {"the system's, the BIO's, the DER reader's, the library's, 352",
                                                ElementsAre("2:21", StartsWith("32:"), StartsWith("13:"), "20:7 line 352")},
    {"the library's, 352",                      ElementsAre("20:7 line 352")},
};
// clang-format on

// A row of the document: its columns.
struct Documented {
    explicit Documented(const DocumentRow& cells)
        : function(cells.at(0)),
          outcome(cells.at(1)),
          result(cells.at(2)),
          earlierErrors(cells.at(3)),
          newErrors(cells.at(4)) {}

    std::string title() const { return function + ": " + outcome; }
    bool keepsEarlierErrors() const {
        EXPECT_THAT(earlierErrors, AnyOf("as before", "cleared")) << title();
        return earlierErrors == "as before";
    }

    std::string function, outcome, result, earlierErrors, newErrors;
};

std::vector<Documented> documented() {
    const std::vector<DocumentRow> rows = documentedRows("## What the error queue holds");
    return {rows.begin(), rows.end()};
}

void expectNewErrors(const Documented& row, const std::vector<std::string>& errors) {
    const auto* const known =
        std::find_if(std::begin(kNewErrors), std::end(kNewErrors),
                     [&](const NewErrors& entry) { return entry.documented == row.newErrors; });
    ASSERT_NE(known, std::end(kNewErrors)) << "what is: " << row.newErrors;
    EXPECT_THAT(errors, known->matcher) << row.newErrors;
}

void expectAsDocumented(const Documented& row, const Way& way) {
    SCOPED_TRACE(row.title());
    putStale();
    EXPECT_EQ(way(), row.result);
    std::vector<std::string> errors = drainErrors();
    const bool kept = !errors.empty() && errors.front() == kStale;
    EXPECT_EQ(kept, row.keepsEarlierErrors());
    if (kept) errors.erase(errors.begin());
    expectNewErrors(row, errors);
}

TEST(CertQueueTest, EveryRowOfTheDocumentIsProvedHere) {
    std::vector<std::string> written;
    std::vector<std::string> proved;
    for (const Documented& row : documented()) written.push_back(row.title());
    for (const QueueCase& row : kQueueCases) {
        proved.push_back(std::string(row.function) + ": " + row.outcome);
    }
    EXPECT_THAT(written, ElementsAreArray(proved));
}

TEST(CertQueueTest, HoldsWhatTheDocumentSays) {
    for (const Documented& row : documented()) {
        for (const QueueCase& known : kQueueCases) {
            if (known.function != row.function || known.outcome != row.outcome) continue;
            for (const Way& way : known.ways) expectAsDocumented(row, way);
        }
    }
}

TEST(CertQueueTest, NoOutcomeLeavesAnythingElseBehind) {
    for (const QueueCase& row : kQueueCases) {
        const bool keptForGood = row.function == kListAddress;
        for (const Way& way : row.ways) {
            SCOPED_TRACE(std::string(row.function) + ": " + row.outcome);
            if (!keptForGood) expectNothingHeld([&] { (void)way(); });
        }
    }
}

}  // namespace
}  // namespace tarnutil_test
