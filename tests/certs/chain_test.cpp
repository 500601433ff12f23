// SPDX-License-Identifier: Apache-2.0
// Certificates, keys and chains in an SSL_CTX.
#include <gmock/gmock.h>
#include <tarnutil/cert.h>

#include "fault.h"
#include "material.h"
#include "record.h"
#include "scratch_dir.h"

namespace tarnutil_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class ChainTest : public testing::Test {
protected:
    ChainTest() { ERR_clear_error(); }
    ~ChainTest() override { ERR_clear_error(); }

    int use(const std::string& path) {
        return TARNSSL_CTX_use_certificate_chain_file(ctx.get(), path.c_str());
    }

    // Gives the context an extra chain, for the call under test to replace or to leave.
    void presetChain() {
        ASSERT_EQ(SSL_CTX_add_extra_chain_cert(ctx.get(), certificate("unrelated.pem").release()),
                  1);
        ERR_clear_error();
    }

    // The names of the context's certificate and of its extra chain.
    std::string leafName() const { return nameOf(SSL_CTX_get0_certificate(ctx.get())); }
    std::vector<std::string> chainNames() const {
        STACK_OF(X509)* chain = nullptr;
        SSL_CTX_get_extra_chain_certs_only(ctx.get(), &chain);
        std::vector<std::string> names;
        for (int i = 0; i < sk_X509_num(chain); ++i) {
            names.push_back(nameOf(sk_X509_value(chain, i)));
        }
        return names;
    }

    const SslCtxPtr ctx{SSL_CTX_new(SSLv23_method())};

private:
    static std::string nameOf(X509* cert) {
        if (cert == nullptr) return "(none)";
        char name[100];
        X509_NAME_get_text_by_NID(X509_get_subject_name(cert), NID_commonName, name, sizeof name);
        return name;
    }
};

TEST_F(ChainTest, InstallsTheLeafAndWhatFollows) {
    EXPECT_EQ(use(material("chain.pem")), 1);
    EXPECT_EQ(leafName(), "leaf");
    EXPECT_THAT(chainNames(), ElementsAre("issuing", "policy"));
    EXPECT_THAT(drainErrors(), IsEmpty());
}

TEST_F(ChainTest, ReplacesAnEarlierExtraChain) {
    presetChain();
    EXPECT_EQ(use(material("chain.pem")), 1);
    EXPECT_THAT(chainNames(), ElementsAre("issuing", "policy"));
}

TEST_F(ChainTest, ALeafAloneEmptiesTheExtraChain) {
    ASSERT_EQ(use(material("chain.pem")), 1);
    EXPECT_EQ(use(material("leaf.pem")), 1);
    EXPECT_THAT(chainNames(), IsEmpty());
}

TEST_F(ChainTest, StaleErrorsAreForgotten) {
    ERR_put_error(ERR_LIB_PEM, 0, PEM_R_BAD_DECRYPT, __FILE__, __LINE__);
    EXPECT_EQ(use(material("chain.pem")), 1);
    EXPECT_THAT(drainErrors(), IsEmpty());
}

TEST_F(ChainTest, AKeyInTheFileIsSkipped) {
    const ScratchDir dir;
    EXPECT_EQ(
        use(dir.write("chain", readFile(material("leaf.key.pem")) + readFile(material("leaf.pem")) +
                                   readFile(material("rsa.locked.pem")) +
                                   readFile(material("issuing.pem")))),
        1);
    EXPECT_EQ(leafName(), "leaf");
    EXPECT_THAT(chainNames(), ElementsAre("issuing"));
}

TEST_F(ChainTest, DerBehindPemIsNotRead) {
    const ScratchDir dir;
    presetChain();
    EXPECT_EQ(
        use(dir.write("chain", readFile(material("leaf.pem")) + readFile(material("issuing.der")))),
        1);
    EXPECT_EQ(leafName(), "leaf");
    EXPECT_THAT(chainNames(), IsEmpty());
}

TEST_F(ChainTest, ADerFileIsRefusedAfterItsLeafWasInstalled) {
    EXPECT_EQ(use(material("leaf.der")), 0);
    EXPECT_EQ(leafName(), "leaf");
}

TEST_F(ChainTest, ADerChainIsInstalledWholeAndRefused) {
    EXPECT_EQ(use(material("chain.der")), 0);
    EXPECT_EQ(leafName(), "leaf");
    EXPECT_THAT(chainNames(), ElementsAre("issuing", "policy"));
}

TEST_F(ChainTest, DamageInTheChainIsRefusedAfterWhatStandsBeforeIt) {
    const ScratchDir dir;
    EXPECT_EQ(
        use(dir.write("chain", readFile(material("leaf.pem")) + readFile(material("issuing.pem")) +
                                   "-----BEGIN CERTIFICATE-----\nAAAA\n")),
        0);
    EXPECT_EQ(leafName(), "leaf");
    EXPECT_THAT(chainNames(), ElementsAre("issuing"));
}

std::size_t count(const std::string& text, const std::string& part) {
    std::size_t found = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++found;
    return found;
}

// How many blocks a part of a chain holds, and whether all that begin in it are whole.
struct Blocks {
    explicit Blocks(const std::string& part)
        : whole(count(part, "-----END CERTIFICATE-----")),
          good(whole > 0 && whole == count(part, "-----BEGIN CERTIFICATE-----")) {}
    const std::size_t whole;
    const bool good;
};

TEST_F(ChainTest, AChainIsRefusedIfItIsCutInABlockWhereverThatIs) {
    const std::string whole = readFile(material("leaf.pem")) + readFile(material("issuing.pem"));
    const ScratchDir dir;
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const std::string path = dir.write("chain", whole.substr(0, length));
        const Blocks blocks(whole.substr(0, length));
        const int found = blocks.whole > 1 ? 1 : 0;
        ASSERT_EQ(use(path), blocks.good ? 1 : 0) << length;
        ASSERT_EQ(TARNSSL_cert_contain_issuer(path.c_str()), blocks.good ? found : -1) << length;
    }
}

TEST_F(ChainTest, ACutChainLeavesNothingBehind) {
    const std::string whole = readFile(material("chain.pem"));
    const ScratchDir dir;
    for (std::size_t length = 0; length <= whole.size(); length += 97) {
        const std::string path = dir.write("chain", whole.substr(0, length));
        expectNothingHeld([&] {
            const SslCtxPtr own(SSL_CTX_new(SSLv23_method()));
            (void)TARNSSL_CTX_use_certificate_chain_file(own.get(), path.c_str());
            (void)TARNSSL_cert_contain_issuer(path.c_str());
        });
    }
}

void recordQueued(const char* file, int line) {
    record("error queue", std::string(file) + ":" + std::to_string(line));
}

struct ChainError {
    const char* says;
    std::string path;
    int line;
};

TEST_F(ChainTest, FailuresBeforeTheFirstCertificateAreQueuedWithTheirLine) {
    const ChainError rows[] = {
        // says  path  line
        {"a missing file", "/nonexistent/chain", 346},
        {"an empty file", material("empty"), 352},
        {"a damaged first block", material("cut_short.pem"), 352},
        {"a file of something else", material("rsa.pkcs8.der"), 352},
    };
    presetChain();
    for (const ChainError& row : rows) {
        EXPECT_EQ(use(row.path), 0) << row.says;
        const char* file = nullptr;
        int line = 0;
        const unsigned long error = ERR_peek_last_error_line(&file, &line);
        EXPECT_EQ(ERR_GET_LIB(error), ERR_LIB_SSL) << row.says;
        EXPECT_EQ(ERR_GET_REASON(error), 7) << row.says;
        EXPECT_STREQ(file, "util/cert.cpp");
        EXPECT_EQ(line, row.line) << row.says;
        recordQueued(file, line);
        EXPECT_EQ(leafName(), "(none)");
        EXPECT_THAT(chainNames(), ElementsAre("unrelated")) << row.says;
    }
}

TEST_F(ChainTest, WithoutABioTheFirstLineIsQueued) {
    const Fault fault(Call::BIO_new, 0);
    ERR_put_error(ERR_LIB_USER, 0, 1, "stale", 1);
    EXPECT_EQ(use(material("chain.pem")), 0);
    const char* file = nullptr;
    int line = 0;
    const unsigned long error = ERR_peek_error_line(&file, &line);
    EXPECT_EQ(ERR_GET_LIB(error), ERR_LIB_SSL);
    EXPECT_EQ(ERR_GET_REASON(error), 7);
    EXPECT_EQ(line, 341);
    recordQueued(file, line);
    EXPECT_EQ(drainErrors().size(), 1u) << "the stale one is forgotten";
}

TEST_F(ChainTest, ACertificateThatTheContextRefusesEndsIt) {
    presetChain();
    const Fault fault(Call::SSL_CTX_use_certificate, 0);
    EXPECT_EQ(use(material("chain.pem")), 0);
    EXPECT_EQ(leafName(), "(none)");
    EXPECT_THAT(chainNames(), ElementsAre("unrelated"));
    EXPECT_THAT(drainErrors(), IsEmpty()) << "nothing of its own";
}

// A security callback that permits everything and complains.
int permitWithAnError(const SSL* /*ssl*/, const SSL_CTX* /*ctx*/, int /*op*/, int /*bits*/,
                      int /*nid*/, void* /*other*/, void* /*extra*/) {
    ERR_put_error(ERR_LIB_USER, 0, 1, "permitted", 1);
    return 1;
}

TEST_F(ChainTest, ACertificateTakenWithAnErrorEndsIt) {
    presetChain();
    SSL_CTX_set_security_callback(ctx.get(), permitWithAnError);
    ASSERT_EQ(SSL_CTX_use_certificate(ctx.get(), certificate("unrelated.pem").get()), 1);
    EXPECT_EQ(use(material("chain.pem")), 0);
    EXPECT_EQ(leafName(), "leaf");
    EXPECT_THAT(chainNames(), ElementsAre("unrelated"));
    EXPECT_THAT(drainErrors(), Contains(std::to_string(ERR_LIB_USER) + ":1"));
}

// Clears the list, then adds the first: the second use is the one to fail.
TEST_F(ChainTest, AnExtraCertificateThatCannotBeAddedEndsItWithoutALeak) {
    const Fault fault(Call::SSL_CTX_ctrl, 0, 2);
    EXPECT_EQ(use(material("chain.pem")), 0);
    EXPECT_TRUE(fault.hasFired());
    EXPECT_EQ(leafName(), "leaf");
    EXPECT_THAT(chainNames(), IsEmpty());
}

TEST_F(ChainTest, SingleCertificatesInstallFromBothFormats) {
    for (const char* name : {"leaf.pem", "leaf.der", "chain.pem"}) {
        EXPECT_EQ(TARNSSL_CTX_use_certificate_file(ctx.get(), material(name).c_str()), 1) << name;
        EXPECT_EQ(leafName(), "leaf");
        EXPECT_THAT(chainNames(), IsEmpty());
    }
    EXPECT_EQ(TARNSSL_CTX_use_certificate_file(ctx.get(), "/nonexistent/leaf"), 0);
    EXPECT_EQ(TARNSSL_CTX_use_certificate_file(ctx.get(), material("rsa.pem").c_str()), 0);
}

TEST_F(ChainTest, KeysInstallFromBothFormats) {
    char secret[] = "secret";
    const auto usesKey = [&](const std::string& path, void* password) {
        return TARNSSL_CTX_use_PrivateKey_file(ctx.get(), path.c_str(), password);
    };
    EXPECT_EQ(usesKey(material("ec.pem"), nullptr), 1);
    EXPECT_EQ(usesKey(material("ec.pkcs8.der"), nullptr), 1);
    EXPECT_EQ(usesKey(material("ec.locked.pem"), secret), 1);
    EXPECT_EQ(usesKey(material("ec.locked.pem"), nullptr), 0);
    EXPECT_EQ(usesKey("/nonexistent/key", nullptr), 0);
}

TEST_F(ChainTest, SingleOnesReturnWhatTheContextSays) {
    const std::string cert = material("leaf.pem");
    const std::string key = material("leaf.key.pem");
    for (const int answer : {2, -1, 0}) {
        const Fault certFault(Call::SSL_CTX_use_certificate, answer);
        const Fault keyFault(Call::SSL_CTX_use_PrivateKey, answer);
        EXPECT_EQ(TARNSSL_CTX_use_certificate_file(ctx.get(), cert.c_str()), answer);
        EXPECT_EQ(TARNSSL_CTX_use_PrivateKey_file(ctx.get(), key.c_str(), nullptr), answer);
    }
}

TEST_F(ChainTest, AKeyThatIsNotTheCertificatesIsRefused) {
    ASSERT_EQ(TARNSSL_CTX_use_certificate_file(ctx.get(), material("leaf.pem").c_str()), 1);
    const std::string key = material("ec.pem");
    EXPECT_EQ(TARNSSL_CTX_use_PrivateKey_file(ctx.get(), key.c_str(), nullptr), 0);
}

TEST_F(ChainTest, ACertificateWithAnotherKeyDropsTheKey) {
    const std::string key = material("ec.pem");
    ASSERT_EQ(TARNSSL_CTX_use_PrivateKey_file(ctx.get(), key.c_str(), nullptr), 1);
    EXPECT_EQ(TARNSSL_CTX_use_certificate_file(ctx.get(), material("leaf.pem").c_str()), 1);
    EXPECT_EQ(SSL_CTX_get0_privatekey(ctx.get()), nullptr);
}

TEST_F(ChainTest, WithoutALeafTheContextIsNotUsed) {
    const Fault fault(Call::SSL_CTX_new, 0);
    EXPECT_EQ(TARNSSL_cert_contain_issuer("/nonexistent/chain"), -1) << "the context is not used";
    EXPECT_TRUE(fault.hasFired());
}

TEST(CertFaultTest, AFailedDigestIsReported) {
    const X509Ptr leaf = certificate("leaf.pem");
    char buffer[103] = "before";
    const Fault fault(Call::X509_digest, 0);
    EXPECT_EQ(TARNSSL_X509_to_fingerprint_str(leaf.get(), buffer, sizeof buffer), -1);
    EXPECT_STREQ(buffer, "before");
}

TEST(CertFaultTest, ADigestOfNoBytesLeavesTheBuffer) {
    const X509Ptr leaf = certificate("leaf.pem");
    char buffer[103] = "before";
    const Fault fault(Call::X509_digest, 1);  // succeeds, and writes no length
    EXPECT_EQ(TARNSSL_X509_to_fingerprint_str(leaf.get(), buffer, sizeof buffer), 1);
    EXPECT_STREQ(buffer, "before");
}

TEST(CertFaultTest, WithoutABioTheNamesAreEmpty) {
    const X509Ptr leaf = certificate("leaf.pem");
    char buffer[103] = "before";
    const Fault fault(Call::BIO_new, 0);
    EXPECT_GE(TARNSSL_X509_get_SANs_str(leaf.get(), buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
}

TEST(CertFaultTest, WithoutABioNothingLoads) {
    const std::string der = readFile(material("leaf.der"));
    {
        const Fault fault(Call::BIO_new_mem_buf, 0);
        int format = 0;
        EXPECT_EQ(TARNSSL_load_X509_buf(der.data(), static_cast<int>(der.size()), &format),
                  nullptr);
        EXPECT_EQ(format, 0);
    }
    const std::string leaf = material("leaf.pem");
    const X509Ptr subject = certificate("leaf.pem");
    const Fault fault(Call::BIO_new_file, 0, 1, Fault::fromThenOn);
    EXPECT_EQ(TARNSSL_load_X509_file(leaf.c_str()), nullptr);
    EXPECT_EQ(TARNSSL_load_X509_REQ_file(leaf.c_str()), nullptr);
    EXPECT_EQ(TARNSSL_load_X509_CRL_file(leaf.c_str()), nullptr);
    EXPECT_EQ(TARNSSL_load_PrivateKey_file(leaf.c_str(), nullptr), nullptr);
    EXPECT_EQ(TARNSSL_load_RSA_file(leaf.c_str(), nullptr), nullptr);
    EXPECT_EQ(TARNSSL_cert_contain_issuer_of(leaf.c_str(), subject.get()), -1);
}

TEST(CertFaultTest, OnlyAOneIsAGoodSignature) {
    const X509Ptr root = certificate("root.pem");
    for (const int answer : {-1, 0, 2}) {
        const Fault fault(Call::X509_verify, answer);
        EXPECT_EQ(TARNSSL_verify_issuer(root.get(), root.get()), 0) << answer;
        EXPECT_TRUE(fault.hasFired());
    }
    EXPECT_EQ(TARNSSL_verify_issuer(root.get(), root.get()), 1);
}

// The signature is checked all the same, and cannot be good.
TEST(CertFaultTest, AnIssuerWhoseKeyCannotBeHadIsNone) {
    const X509Ptr root = certificate("root.pem");
    ERR_clear_error();
    const Fault fault(Call::X509_get_pubkey, 0);
    EXPECT_EQ(TARNSSL_verify_issuer(root.get(), root.get()), 0);
    EXPECT_THAT(drainErrors(), Not(IsEmpty())) << "of the check without a key";
}

}  // namespace
}  // namespace tarnutil_test
