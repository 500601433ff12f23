// SPDX-License-Identifier: Apache-2.0
// Certificates, requests and lists that say that they are locked: nobody is asked for a password.
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <tarnutil/cert.h>
#include <unistd.h>

#include "material.h"
#include "scratch_dir.h"

namespace tarnutil_test {
namespace {

// A pipe in the place of a standard stream.
class StandIn {
public:
    StandIn(int standard, int end) : kept(dup(standard)), stream(standard) {
        EXPECT_EQ(pipe(ends), 0);
        EXPECT_EQ(dup2(ends[end], stream), stream);
    }
    ~StandIn() {
        dup2(kept, stream);
        for (const int fd : {kept, ends[0], ends[1]}) close(fd);
    }
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

    void write(const std::string& text) const {
        EXPECT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    int pending() const {
        int bytes = -1;
        EXPECT_EQ(ioctl(ends[0], FIONREAD, &bytes), 0);
        return bytes;
    }

private:
    const int kept;
    const int stream;
    int ends[2];
};

// Whether `read` made an object of the named file's bytes.
template <class Object, void (*Free)(Object*), class Read>
bool fromBio(const char* name, Read read) {
    const std::string bytes = readFile(material(name));
    const BioPtr bio = reading(bytes);
    return std::unique_ptr<Object, FreeWith<Free>>(read(bio.get())) != nullptr;
}
bool certFromBio(int* format) {
    return fromBio<X509, X509_free>("locked.pem",
                                    [=](BIO* bio) { return TARNSSL_load_X509_bio(bio, format); });
}
bool requestFromBio(int* format) {
    return fromBio<X509_REQ, X509_REQ_free>(
        "locked.req.pem", [=](BIO* bio) { return TARNSSL_load_X509_REQ_bio(bio, format); });
}
bool certFromBuffer(int* format) {
    const std::string bytes = readFile(material("locked.pem"));
    return X509Ptr(TARNSSL_load_X509_buf(bytes.data(), static_cast<int>(bytes.size()), format)) !=
           nullptr;
}

// What `ask` makes of a file that holds the locked certificate behind the named one, if any.
template <class Ask>
int ofFile(const char* first, Ask ask) {
    const ScratchDir dir;
    const std::string before = first == nullptr ? "" : readFile(material(first));
    return ask(dir.write("file", before + readFile(material("locked.pem"))).c_str());
}
int usesChain(const char* path) {
    const SslCtxPtr ctx(SSL_CTX_new(SSLv23_method()));
    return TARNSSL_CTX_use_certificate_chain_file(ctx.get(), path);
}
int usesCert(const char* path) {
    const SslCtxPtr ctx(SSL_CTX_new(SSLv23_method()));
    return TARNSSL_CTX_use_certificate_file(ctx.get(), path);
}
int issuerOfLeaf(const char* path) {
    return TARNSSL_cert_contain_issuer_of(path, certificate("leaf.pem").get());
}

struct LockedCase {
    const char* says;
    int (*read)(int format);
    int result;
};
// clang-format off
const LockedCase kLockedCases[] = {
    // says                                   how it is read                                                                                                 result
    {"a certificate from a BIO",              [](int format) -> int { return certFromBio(&format); },                                                        0},
    {"the same without an indicator",         [](int) -> int { return certFromBio(nullptr); },                                                               0},
    {"a certificate from bytes",              [](int format) -> int { return certFromBuffer(&format); },                                                     0},
    {"a certificate from a file",             [](int) -> int { return X509Ptr(TARNSSL_load_X509_file(material("locked.pem").c_str())) != nullptr; },         0},
    {"a request from a BIO",                  [](int format) -> int { return requestFromBio(&format); },                                                     0},
    {"the same without an indicator",         [](int) -> int { return requestFromBio(nullptr); },                                                            0},
    {"a request from a file",                 [](int) -> int { return RequestPtr(TARNSSL_load_X509_REQ_file(material("locked.req.pem").c_str())) != nullptr; }, 0},
    {"a list from a BIO",                     [](int) -> int { return fromBio<X509_CRL, X509_CRL_free>("locked.crl.pem", TARNSSL_load_X509_CRL_bio); },      0},
    {"a list from a file",                    [](int) -> int { return CrlPtr(TARNSSL_load_X509_CRL_file(material("locked.crl.pem").c_str())) != nullptr; },  0},
    {"a context's certificate",               [](int) { return ofFile(nullptr, usesCert); },                                                                 0},
    {"a chain's first certificate",           [](int) { return ofFile(nullptr, usesChain); },                                                                0},
    {"one that follows in a chain",           [](int) { return ofFile("leaf.pem", usesChain); },                                                             0},
    {"the first candidate for an issuer",     [](int) { return ofFile(nullptr, issuerOfLeaf); },                                                             0},
    {"a later candidate",                     [](int) { return ofFile("leaf.pem", issuerOfLeaf); },                                                          0},
    {"a leaf whose issuer is looked for",     [](int) { return ofFile(nullptr, TARNSSL_cert_contain_issuer); },                                              -1},
    {"a candidate for the own issuer",        [](int) { return ofFile("leaf.pem", TARNSSL_cert_contain_issuer); },                                           -1},
};
// clang-format on

TEST(LockedCertTest, NobodyIsAskedForAPassword) {
    const std::string line = "secret\n";
    for (const LockedCase& row : kLockedCases) {
        for (const int format : {0, 1}) {
            SCOPED_TRACE(row.says);
            const StandIn input(STDIN_FILENO, /*end=*/0);
            const StandIn complaints(STDERR_FILENO, /*end=*/1);
            input.write(line);
            const int result = row.read(format);
            const int unread = input.pending();
            const int printed = complaints.pending();
            EXPECT_EQ(result, row.result);
            EXPECT_EQ(unread, static_cast<int>(line.size()));
            EXPECT_EQ(printed, 0);
        }
    }
    ERR_clear_error();
}

}  // namespace
}  // namespace tarnutil_test
