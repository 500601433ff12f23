// SPDX-License-Identifier: Apache-2.0
// Private keys: which forms load, and when DER is tried.
#include <gmock/gmock.h>
#include <tarnutil/cert.h>
#include <unistd.h>

#include "material.h"
#include "scratch_dir.h"

namespace tarnutil_test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// The password as callers pass it.
void* secret(const char* text) { return const_cast<char*>(text); }

struct KeyCase {
    const char* says;
    const char* file;
    const char* password;
    int type;          // EVP_PKEY_NONE: does not load
    bool derWasTried;  // shown by an earlier error, which is cleared then
};

constexpr int kNone = EVP_PKEY_NONE;
// clang-format off
const KeyCase kKeyCases[] = {
    // says                                         file                        password  type              DER tried
    {"PKCS#8 PEM, RSA",                             "rsa.pem",                  nullptr,  EVP_PKEY_RSA,     false},
    {"PKCS#8 PEM, EC",                              "ec.pem",                   nullptr,  EVP_PKEY_EC,      false},
    {"PKCS#8 PEM, Ed25519",                         "ed25519.pem",              nullptr,  EVP_PKEY_ED25519, false},
    {"a password that nobody asks for",             "rsa.pem",                  "secret", EVP_PKEY_RSA,     false},
    {"traditional PEM, RSA",                        "rsa.traditional.pem",      nullptr,  EVP_PKEY_RSA,     false},
    {"traditional PEM, EC",                         "ec.traditional.pem",       nullptr,  EVP_PKEY_EC,      false},
    {"locked PKCS#8, RSA",                          "rsa.locked.pem",           "secret", EVP_PKEY_RSA,     false},
    {"locked PKCS#8, EC",                           "ec.locked.pem",            "secret", EVP_PKEY_EC,      false},
    {"locked PKCS#8, Ed25519",                      "ed25519.locked.pem",       "secret", EVP_PKEY_ED25519, false},
    {"locked traditional PEM, RSA",                 "rsa.traditional.locked.pem", "secret", EVP_PKEY_RSA,   false},
    {"locked traditional PEM, EC",                  "ec.traditional.locked.pem", "secret", EVP_PKEY_EC,     false},
    {"traditional DER, RSA",                        "rsa.traditional.der",      nullptr,  EVP_PKEY_RSA,     true},
    {"traditional DER, EC",                         "ec.traditional.der",       nullptr,  EVP_PKEY_EC,      true},
    {"PKCS#8 DER, RSA",                             "rsa.pkcs8.der",            nullptr,  EVP_PKEY_RSA,     true},
    {"PKCS#8 DER, EC",                              "ec.pkcs8.der",             nullptr,  EVP_PKEY_EC,      true},
    {"PKCS#8 DER, Ed25519",                         "ed25519.pkcs8.der",        nullptr,  EVP_PKEY_ED25519, true},
    {"DER takes no notice of a password",           "rsa.pkcs8.der",            "wrong",  EVP_PKEY_RSA,     true},
    {"locked DER, its password",                    "rsa.locked.der",           "secret", kNone,            true},
    {"locked DER, no password",                     "rsa.locked.der",           nullptr,  kNone,            true},
    {"a wrong password, PKCS#8",                    "rsa.locked.pem",           "wrong",  kNone,            false},
    {"a wrong password, traditional",               "rsa.traditional.locked.pem", "wrong", kNone,           false},
    {"no password, PKCS#8",                         "rsa.locked.pem",           nullptr,  kNone,            false},
    {"no password, traditional",                    "rsa.traditional.locked.pem", nullptr, kNone,           false},
    {"an empty password is a password",             "rsa.locked.pem",           "",       kNone,            false},
    {"damaged PEM",                                 "damaged.pem",              nullptr,  kNone,            false},
    {"PEM without its end",                         "cut_short.pem",            nullptr,  kNone,            false},
    {"damaged PEM, a DER key behind it",            "damaged_then_der.pem",     nullptr,  kNone,            false},
    {"damaged PEM, a DER key before it",            "der_then_damaged.pem",     nullptr,  kNone,            false},
    {"damaged PEM on a line of its own after DER",  "der_newline_damaged.pem",  nullptr,  kNone,            false},
    {"a PEM block of another kind after DER",       "der_then_certificate.pem", nullptr,  kNone,            false},
    {"a key behind certificates",                   "server.pem",               nullptr,  EVP_PKEY_RSA,     false},
    {"a locked key behind certificates",            "server.locked.pem",        "secret", EVP_PKEY_RSA,     false},
    {"the same, a wrong password",                  "server.locked.pem",        "wrong",  kNone,            false},
    {"the same, no password",                       "server.locked.pem",        nullptr,  kNone,            false},
    {"PEM that holds no key",                       "root.pem",                 nullptr,  kNone,            false},
    {"DER that holds no key",                       "root.der",                 nullptr,  kNone,            true},
};
// clang-format on

class KeyTest : public testing::TestWithParam<KeyCase> {
protected:
    KeyTest() { ERR_clear_error(); }
};
INSTANTIATE_TEST_SUITE_P(All, KeyTest, testing::ValuesIn(kKeyCases));

TEST_P(KeyTest, LoadsOrSaysWhyNot) {
    SCOPED_TRACE(GetParam().says);
    ERR_put_error(ERR_LIB_USER, 0, 1, "earlier", 1);
    const EvpPkeyPtr key(TARNSSL_load_PrivateKey_file(material(GetParam().file).c_str(),
                                                      secret(GetParam().password)));
    std::vector<std::string> errors = drainErrors();
    EXPECT_EQ(key == nullptr ? kNone : EVP_PKEY_id(key.get()), GetParam().type);
    const bool cleared = errors.empty() || errors.front() != "128:1";
    EXPECT_EQ(cleared, GetParam().derWasTried);
    if (!cleared) errors.erase(errors.begin());
    EXPECT_EQ(errors.empty(), key != nullptr) << testing::PrintToString(errors);
}

TEST_P(KeyTest, LoadsTheSameFromMemory) {
    SCOPED_TRACE(GetParam().says);
    const std::string bytes = readFile(material(GetParam().file));
    const BioPtr bio = reading(bytes);
    const EvpPkeyPtr key(TARNSSL_load_PrivateKey_bio(bio.get(), secret(GetParam().password)));
    EXPECT_EQ(key == nullptr ? kNone : EVP_PKEY_id(key.get()), GetParam().type);
    ERR_clear_error();
}

TEST_P(KeyTest, OnlyAnRsaKeyComesAsRsa) {
    SCOPED_TRACE(GetParam().says);
    const RsaPtr rsa(
        TARNSSL_load_RSA_file(material(GetParam().file).c_str(), secret(GetParam().password)));
    EXPECT_EQ(rsa != nullptr, GetParam().type == EVP_PKEY_RSA);
    ERR_clear_error();
}

TEST(KeyReadingTest, RsaObjectIsTheKeyOfTheFile) {
    const std::string bytes = readFile(material("rsa.traditional.der"));
    const BioPtr bio = reading(bytes);
    const RsaPtr rsa(TARNSSL_load_RSA_bio(bio.get(), nullptr));
    ASSERT_NE(rsa, nullptr);
    unsigned char* encoded = nullptr;
    const int length = i2d_RSAPrivateKey(rsa.get(), &encoded);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(encoded), static_cast<size_t>(length)), bytes);
    OPENSSL_free(encoded);
}

// The EC key in PEM, locked with `password`.
std::string lockedWith(const std::string& password) {
    const EvpPkeyPtr key(TARNSSL_load_PrivateKey_file(material("ec.pem").c_str(), nullptr));
    const BioPtr bio(BIO_new(BIO_s_mem()));
    EXPECT_EQ(
        PEM_write_bio_PKCS8PrivateKey(bio.get(), key.get(), EVP_aes_128_cbc(), password.data(),
                                      static_cast<int>(password.size()), nullptr, nullptr),
        1);
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, static_cast<std::size_t>(length));
}

TEST(KeyReadingTest, APasswordCountsAsFarAsTheBufferTakesIt) {
    const std::string locked = lockedWith(std::string(PEM_BUFSIZE, 'x'));
    const BioPtr bio = reading(locked);
    const std::string longer(2000, 'x');
    EXPECT_NE(EvpPkeyPtr(TARNSSL_load_PrivateKey_bio(bio.get(), secret(longer.c_str()))), nullptr);
    ERR_clear_error();
}

// Whether the one opens what the other opens is OpenSSL's business, and differs between releases.
TEST(KeyReadingTest, NoPasswordIsAnEmptyPassword) {
    const EvpPkeyPtr key(TARNSSL_load_PrivateKey_file(material("rsa.pem").c_str(), nullptr));
    const RsaPtr rsa(EVP_PKEY_get1_RSA(key.get()));
    const BioPtr written(BIO_new(BIO_s_mem()));
    unsigned char nothing = 0;  // of which no byte counts
    ASSERT_EQ(PEM_write_bio_RSAPrivateKey(written.get(), rsa.get(), EVP_aes_128_cbc(), &nothing, 0,
                                          nullptr, nullptr),
              1);
    char* data = nullptr;
    const long length = BIO_get_mem_data(written.get(), &data);
    const std::string locked(data, static_cast<std::size_t>(length));
    const auto opens = [&](const char* password) {
        const BioPtr bio = reading(locked);
        return EvpPkeyPtr(TARNSSL_load_PrivateKey_bio(bio.get(), secret(password))) != nullptr;
    };
    EXPECT_EQ(opens(nullptr), opens(""));
    ERR_clear_error();
}

TEST(KeyReadingTest, AFileThatIsNotThereIsNull) {
    EXPECT_EQ(TARNSSL_load_PrivateKey_file("/nonexistent/key", nullptr), nullptr);
    EXPECT_EQ(TARNSSL_load_RSA_file("/nonexistent/key", nullptr), nullptr);
    EXPECT_THAT(drainErrors(), Not(IsEmpty()));
}

TEST(KeyReadingTest, EarlierErrorsDoNotMakeADerKeyFail) {
    ERR_put_error(ERR_LIB_PEM, 0, PEM_R_BAD_DECRYPT, __FILE__, __LINE__);
    const EvpPkeyPtr key(TARNSSL_load_PrivateKey_file(material("ec.pkcs8.der").c_str(), nullptr));
    EXPECT_NE(key, nullptr);
    EXPECT_THAT(drainErrors(), IsEmpty()) << "cleared before DER was tried";
}

TEST(KeyReadingTest, AWrongPasswordLeavesEarlierErrors) {
    ERR_put_error(ERR_LIB_PEM, 0, PEM_R_BAD_END_LINE, __FILE__, __LINE__);
    EXPECT_EQ(TARNSSL_load_PrivateKey_file(material("ec.locked.pem").c_str(), secret("wrong")),
              nullptr);
    const std::vector<std::string> errors = drainErrors();
    ASSERT_THAT(errors, Not(IsEmpty()));
    EXPECT_EQ(errors.front(), "9:" + std::to_string(PEM_R_BAD_END_LINE));
}

// The type of the next key in `bio`.
int nextKey(const BioPtr& bio, const char* password = nullptr) {
    const EvpPkeyPtr key(TARNSSL_load_PrivateKey_bio(bio.get(), secret(password)));
    return key == nullptr ? kNone : EVP_PKEY_id(key.get());
}

TEST(KeyReadingTest, KeysBehindEachOtherComeOneByOne) {
    const std::string bytes = readFile(material("rsa.pem")) + readFile(material("ec.pem"));
    const BioPtr bio = reading(bytes);
    EXPECT_EQ(nextKey(bio), EVP_PKEY_RSA);
    EXPECT_EQ(nextKey(bio), EVP_PKEY_EC);
}

TEST(KeyReadingTest, BehindTheLastBlockReadingStartsOverAsDer) {
    const std::string bytes = readFile(material("rsa.pem"));
    const BioPtr bio = reading(bytes);
    EXPECT_EQ(nextKey(bio), EVP_PKEY_RSA);
    EXPECT_EQ(BIO_pending(bio.get()), 0);
    for (int again = 0; again < 2; ++again) {
        ERR_put_error(ERR_LIB_USER, 0, 1, "earlier", 1);
        EXPECT_EQ(nextKey(bio), kNone);
        EXPECT_THAT(drainErrors(), AllOf(Contains(StartsWith("13:")), Not(Contains("128:1"))));
        EXPECT_EQ(BIO_tell(bio.get()), 2 + '-') << "one DER object, of the length that \"--\" says";
    }
}

// A BIO that holds a DER key and, on a line of its own, the named one.
struct DerThen {
    explicit DerThen(const char* name)
        : bytes(readFile(material("rsa.pkcs8.der")) + "\n" + readFile(material(name))),
          bio(reading(bytes)) {}
    const std::string bytes;
    const BioPtr bio;
};

TEST(KeyReadingTest, ADerKeyBeforePemComesBehindIt) {
    const DerThen input("ec.pem");
    for (const int type : {EVP_PKEY_EC, EVP_PKEY_RSA, EVP_PKEY_EC, EVP_PKEY_RSA}) {
        EXPECT_EQ(nextKey(input.bio), type);
        EXPECT_THAT(drainErrors(), IsEmpty());
    }
}

TEST(KeyReadingTest, AfterAWrongPasswordTheBioHasToBeRewound) {
    const DerThen input("ec.locked.pem");
    EXPECT_EQ(nextKey(input.bio, "wrong"), kNone);
    EXPECT_EQ(nextKey(input.bio, "secret"), EVP_PKEY_RSA) << "the DER key at the beginning";
    EXPECT_EQ(BIO_seek(input.bio.get(), 0), 0);
    EXPECT_EQ(nextKey(input.bio, "wrong"), kNone);
    EXPECT_EQ(BIO_seek(input.bio.get(), 0), 0);
    EXPECT_EQ(nextKey(input.bio, "secret"), EVP_PKEY_EC);
    ERR_clear_error();
}

TEST(KeyReadingTest, AWrittenMemoryBioIsEmptiedByTheRewind) {
    const std::string bytes = readFile(material("ec.pkcs8.der"));
    const BioPtr bio(BIO_new(BIO_s_mem()));
    ASSERT_EQ(BIO_write(bio.get(), bytes.data(), static_cast<int>(bytes.size())),
              static_cast<int>(bytes.size()));
    EXPECT_EQ(TARNSSL_load_PrivateKey_bio(bio.get(), nullptr), nullptr);
    EXPECT_EQ(BIO_pending(bio.get()), 0);
    ERR_clear_error();
}

// What PEM's reader has taken cannot be had again: no second look, as DER, is possible.
TEST(KeyReadingTest, BytesThatCannotBeReadTwiceAreNotTriedAsDer) {
    const std::string bytes = readFile(material("ec.pkcs8.der"));
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const BioPtr bio(BIO_new_fd(ends[0], BIO_CLOSE));
    const auto size = static_cast<ssize_t>(bytes.size());
    ASSERT_EQ(write(ends[1], bytes.data(), bytes.size()), size);
    close(ends[1]);
    EXPECT_EQ(TARNSSL_load_PrivateKey_bio(bio.get(), nullptr), nullptr);
    EXPECT_THAT(drainErrors(), Not(IsEmpty()));
}

// A BIO's callback: lets everything happen but going back.
long refuseToGoBack(BIO*, int operation, const char*, int what, long, long result) {
    return operation == BIO_CB_CTRL && what == BIO_C_FILE_SEEK ? -1 : result;
}

TEST(KeyReadingTest, AnInputThatRefusesToGoBackIsNotTriedAsDer) {
    const std::string bytes = readFile(material("ec.pkcs8.der"));
    const BioPtr bio = reading(bytes);
    BIO_set_callback(bio.get(), refuseToGoBack);
    EXPECT_EQ(TARNSSL_load_PrivateKey_bio(bio.get(), nullptr), nullptr);
    EXPECT_THAT(drainErrors(), Not(IsEmpty()));
}

TEST(KeyReadingTest, AWrongPasswordIsNotRetriedAsDerInAWrittenMemoryBio) {
    const std::string bytes = readFile(material("rsa.traditional.locked.pem"));
    const BioPtr bio(BIO_new(BIO_s_mem()));
    ASSERT_GT(BIO_write(bio.get(), bytes.data(), static_cast<int>(bytes.size())), 0);
    ERR_clear_error();
    EXPECT_EQ(TARNSSL_load_PrivateKey_bio(bio.get(), secret("wrong")), nullptr);
    EXPECT_THAT(drainErrors(), Not(IsEmpty()));
}

// The start line of a block may lie across the edge of what is read at once, wherever that is.
TEST(KeyReadingTest, AStartLineIsFoundAtEveryDistance) {
    const std::string block = readFile(material("damaged.pem"));
    for (std::size_t distance = 4060; distance <= 4120; ++distance) {
        std::string bytes = readFile(material("ec.pkcs8.der"));
        bytes += std::string(distance - bytes.size(), '\0') + block;
        const BioPtr bio = reading(bytes);
        const EvpPkeyPtr key(TARNSSL_load_PrivateKey_bio(bio.get(), nullptr));
        EXPECT_EQ(key, nullptr) << distance;
    }
    ERR_clear_error();
}

TEST(KeyReadingTest, AStartLineIsFoundThoughNothingFollows) {
    const std::string mark = "-----BEGIN ";
    for (std::size_t size = 4090; size <= 4110; ++size) {
        std::string bytes = readFile(material("ec.pkcs8.der"));
        bytes += std::string(size - mark.size() - bytes.size(), '\0') + mark;
        const BioPtr bio = reading(bytes);
        EXPECT_EQ(EvpPkeyPtr(TARNSSL_load_PrivateKey_bio(bio.get(), nullptr)), nullptr) << size;
    }
    ERR_clear_error();
}

// Truncated and altered at every byte: a key or null, and nothing that stays behind.
class DamagedKeyTest : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(All, DamagedKeyTest,
                         testing::Values("rsa.pem", "rsa.traditional.locked.pem", "ec.pem",
                                         "ec.pkcs8.der", "ec.traditional.der", "ec.locked.pem",
                                         "ec.traditional.locked.pem", "ed25519.pem"));

EvpPkeyPtr load(const std::string& bytes) {
    const BioPtr bio = reading(bytes);
    EvpPkeyPtr key(TARNSSL_load_PrivateKey_bio(bio.get(), secret("secret")));
    ERR_clear_error();
    return key;
}

TEST_P(DamagedKeyTest, IsNullWhereverItIsCut) {
    const std::string whole = readFile(material(GetParam()));
    // Without its line end a block of PEM is still whole.
    const std::size_t needed = whole.back() == '\n' ? whole.size() - 1 : whole.size();
    expectNothingHeld([&] {
        for (std::size_t length = 0; length < needed; ++length) {
            ASSERT_EQ(load(whole.substr(0, length)), nullptr) << length;
        }
    });
}

TEST_P(DamagedKeyTest, LeaksNothingWhereverItIsAltered) {
    std::string bytes = readFile(material(GetParam()));
    expectNothingHeld([&] {
        for (char& byte : bytes) {
            const char original = byte;
            byte = static_cast<char>(original ^ 0x15);
            (void)load(bytes);
            byte = original;
        }
    });
}

}  // namespace
}  // namespace tarnutil_test
