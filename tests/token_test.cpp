// SPDX-License-Identifier: Apache-2.0
// Authentication tokens. The golden ones were made without the library, by tests/tokens/issue.py;
// forged ones are made here, of any plaintext.
#include <gmock/gmock.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <memory>
#include <set>
#include <thread>

#include <tarnutil/CryptoUtil.h>
#include <tarnutil/Exception.h>

#include "fail_each.h"
#include "fault.h"
#include "openssl.h"
#include "scratch_dir.h"

namespace {

using tarnutil::BioPtr;
using tarnutil::CryptoUtil;
using tarnutil::Exception;
using tarnutil::FreeWith;
using namespace tarnutil_test;
using testing::ThrowsMessage;
using testing::UnorderedElementsAre;

using Attributes = std::map<std::string, std::string>;
using Bytes = std::vector<unsigned char>;
using RsaPtr = std::unique_ptr<RSA, FreeWith<RSA_free>>;

const std::string kNoEncrypt = "Could not RSA encrypt authentication token.";
const std::string kNoDecrypt = "Could not RSA decrypt authentication token.";
const std::string kTooShort = "Not enough data in authentication token.";
const std::string kNotValid = "Authentication token message digest did not validate.";

std::string tokenFile(const std::string& name) {
    return std::string(TARNUTIL_TEST_TOKENS) + "/" + name;
}

// The golden private key of `bits`, read once.
RSA* key(int bits) {
    static std::map<int, RsaPtr> keys;
    RsaPtr& found = keys[bits];
    if (!found) {
        const std::string file = tokenFile(std::to_string(bits) + ".pem");
        const BioPtr bio(BIO_new_file(file.c_str(), "r"));
        found.reset(PEM_read_bio_RSAPrivateKey(bio.get(), nullptr, nullptr, nullptr));
        if (!found) throw std::runtime_error("cannot read " + file);
    }
    return found.get();
}

// The public half of a key, without the private one.
RsaPtr publicKey(const RSA* pair) { return RsaPtr(RSAPublicKey_dup(const_cast<RSA*>(pair))); }

Bytes bytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

Bytes& operator+=(Bytes& data, const Bytes& more) {
    data.insert(data.end(), more.begin(), more.end());
    return data;
}

Bytes integer(unsigned int value) {
    return {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
            static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
}

Bytes field(const std::string& content) {
    Bytes data = integer(static_cast<unsigned int>(content.size()));
    return data += bytes(content);
}

// `data` and its digest.
Bytes signedBytes(Bytes data) {
    const Bytes digest = CryptoUtil::computeSha1Digest(data);
    return data += digest;
}

// Time stamp, user and the first digest.
Bytes head(unsigned int timestamp, const std::string& user) {
    Bytes data = integer(timestamp);
    return signedBytes(data += field(user));
}

// A whole plaintext with these entries, of which it says there are `count`.
Bytes plaintext(unsigned int timestamp, const std::string& user, unsigned int count,
                const std::vector<std::string>& entries) {
    Bytes data = head(timestamp, user);
    data += integer(count);
    for (const std::string& entry : entries) data += field(entry);
    return signedBytes(data);
}

// Encrypts one piece of a plaintext.
Bytes sealedBlock(const unsigned char* data, std::size_t length, RSA* with) {
    Bytes block(static_cast<std::size_t>(RSA_size(with)));
    EXPECT_EQ(
        RSA_private_encrypt(static_cast<int>(length), data, block.data(), with, RSA_PKCS1_PADDING),
        RSA_size(with));
    return block;
}

// Encrypts any bytes, of any size, in pieces of at most `piece` bytes.
Bytes sealedInPieces(const Bytes& data, std::size_t piece, RSA* with) {
    Bytes sealed;
    for (std::size_t at = 0; at < data.size(); at += piece) {
        sealed += sealedBlock(data.data() + at, std::min(piece, data.size() - at), with);
    }
    return sealed;
}

// Encrypts any bytes, of any size, as a token.
Bytes sealedBytes(const Bytes& data, RSA* with) {
    return sealedInPieces(data, static_cast<std::size_t>(RSA_size(with)) - 11, with);
}

std::string sealed(const Bytes& data, RSA* with = key(1024)) {
    return CryptoUtil::base64Encode(sealedBytes(data, with));
}

// The plaintext of a token.
Bytes opened(const std::string& token, RSA* with) {
    const Bytes ciphertext = CryptoUtil::base64Decode(token);
    const std::size_t size = static_cast<std::size_t>(RSA_size(with));
    Bytes data;
    for (std::size_t at = 0; at < ciphertext.size(); at += size) {
        Bytes block(size);
        const int length = RSA_public_decrypt(static_cast<int>(size), ciphertext.data() + at,
                                              block.data(), with, RSA_PKCS1_PADDING);
        EXPECT_GE(length, 0);
        block.resize(static_cast<std::size_t>(std::max(length, 0)));
        data += block;
    }
    return data;
}

// What decryptAuthToken fills, with marks to see what it leaves alone.
struct Result {
    std::string user = "(user)";
    Attributes attributes = {{"(name)", "(value)"}};
    long timestamp = -7;

    bool operator==(const Result& other) const {
        return user == other.user && attributes == other.attributes && timestamp == other.timestamp;
    }
};

void PrintTo(const Result& result, std::ostream* out) {
    *out << testing::PrintToString(
        std::make_tuple(result.user, result.attributes, result.timestamp));
}

void open(const std::string& token, Result& result, RSA* with = key(1024)) {
    CryptoUtil::decryptAuthToken(token, result.user, result.attributes, result.timestamp, with);
}

Result open(const std::string& token, RSA* with = key(1024)) {
    Result result;
    open(token, result, with);
    return result;
}

// The message with which a token is refused, and what was filled until then.
std::pair<std::string, Result> refusal(const std::string& token, RSA* with = key(1024)) {
    Result result;
    try {
        open(token, result, with);
    } catch (const Exception& e) {
        return {e.what(), result};
    }
    return {"(opened)", result};
}

// ---- Both directions, against tokens made elsewhere ----

struct GoldenCase {
    const char* name;
    Result content;
};
const GoldenCase kGoldenCases[] = {
    {"one", {"alice", {{"role", "admin"}, {"x", ""}}, 1000}},
    {"several",
     {"bob",
      {{"note",
        [] {
            std::string digits;
            for (int i = 0; i < 90; ++i) digits += "0123456789";
            return digits;
        }()},
       {"pair", "a=b"}},
      4000000000}},
};

class GoldenTokenTest : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(KeySizes, GoldenTokenTest,
                         testing::Values(1024, 1536, 2048, 2056, 3072, 4096));

TEST_P(GoldenTokenTest, IsIssuedByteForByte) {
    for (const auto& [name, content] : kGoldenCases) {
        const std::string golden =
            readFile(tokenFile(std::to_string(GetParam()) + "." + name + ".token"));
        EXPECT_EQ(CryptoUtil::generateAuthToken(content.user, content.attributes, content.timestamp,
                                                key(GetParam())),
                  golden)
            << name;
    }
}

TEST_P(GoldenTokenTest, IsOpenedWithThePublicKeyAlone) {
    const RsaPtr reader = publicKey(key(GetParam()));
    for (const auto& [name, content] : kGoldenCases) {
        const std::string golden =
            readFile(tokenFile(std::to_string(GetParam()) + "." + name + ".token"));
        EXPECT_EQ(open(golden, reader.get()), content) << name;
    }
}

TEST_P(GoldenTokenTest, IsRefusedByTheKeyOfAnotherPair) {
    RSA* const other = key(GetParam() == 1024 ? 2048 : 1024);
    const std::string golden = readFile(tokenFile(std::to_string(GetParam()) + ".one.token"));
    EXPECT_EQ(refusal(golden, other).first, kNoDecrypt);
}

// A new pair, which no other test has.
RsaPtr newPair(int bits) {
    RsaPtr pair(RSA_new());
    const std::unique_ptr<BIGNUM, FreeWith<BN_free>> exponent(BN_new());
    EXPECT_EQ(BN_set_word(exponent.get(), RSA_F4), 1);
    EXPECT_EQ(RSA_generate_key_ex(pair.get(), bits, exponent.get(), nullptr), 1);
    return pair;
}

TEST(TokenTest, AnotherPairOfTheSameSizeIsRefusedToo) {
    const RsaPtr other = newPair(1024);
    const auto [message, result] = refusal(sealed(plaintext(1, "u", 1, {"a=1"})), other.get());
    EXPECT_EQ(message, kNoDecrypt);
    EXPECT_EQ(result, Result());
    const RsaPtr reader = publicKey(other.get());
    const std::string token = CryptoUtil::generateAuthToken("u", {}, 1, other.get());
    EXPECT_EQ(open(token, reader.get()), (Result{"u", {}, 1}));
}

// ---- The layout ----

TEST(TokenTest, ThePlaintextIsLaidOutFieldByField) {
    const std::string token =
        CryptoUtil::generateAuthToken("alice", {{"x", ""}, {"role", "admin"}}, 1000, key(2048));
    EXPECT_EQ(opened(token, key(2048)), plaintext(1000, "alice", 2, {"role=admin", "x="}));
}

TEST(TokenTest, ATokenOfNothingHas52Bytes) {
    const std::string token = CryptoUtil::generateAuthToken("", {}, 0, key(1024));
    EXPECT_EQ(opened(token, key(1024)).size(), 52U);
    EXPECT_EQ(open(token), (Result{"", {}, 0}));
}

TEST(TokenTest, ABlockHoldsElevenBytesLessThanTheKey) {
    // 52 bytes and the user's name: 245 bytes fill a block of a 2048-bit key.
    const std::string one = CryptoUtil::generateAuthToken(std::string(193, 'u'), {}, 0, key(2048));
    const std::string two = CryptoUtil::generateAuthToken(std::string(194, 'u'), {}, 0, key(2048));
    EXPECT_EQ(one.size(), 344U);
    EXPECT_EQ(two.size(), 684U);
    EXPECT_EQ(open(one, key(2048)).user.size(), 193U);
    EXPECT_EQ(open(two, key(2048)).user.size(), 194U);
}

TEST(TokenTest, OnlyTheLow32BitsOfATimeStampSurvive) {
    const std::pair<long, long> stamps[] = {
        {-1, 4294967295}, {(1L << 32) + 5, 5}, {0, 0}, {4294967295, 4294967295}};
    for (const auto& [given, read] : stamps) {
        EXPECT_EQ(open(CryptoUtil::generateAuthToken("u", {}, given, key(1024))).timestamp, read);
    }
}

TEST(TokenTest, WithoutATimeStampTheClockIsRead) {
    const Fault clock(Call::time, 1234567890);
    const std::string token = CryptoUtil::generateAuthToken("u", {{"a", "b"}}, key(1024));
    EXPECT_EQ(open(token), (Result{"u", {{"a", "b"}}, 1234567890}));
}

TEST(TokenTest, AnyBytesButAnEqualsSignInANameSurvive) {
    const std::string zeros("\0\n=\xff", 4);
    const Attributes attributes = {{"", ""}, {"a", "b=c"}, {"x\n", zeros}, {"y", "=="}};
    const std::string token = CryptoUtil::generateAuthToken(zeros, attributes, 1, key(1024));
    EXPECT_EQ(open(token), (Result{zeros, attributes, 1}));
}

TEST(TokenTest, ANameEndsAtItsFirstEqualsSign) {
    const std::string token = CryptoUtil::generateAuthToken("u", {{"a=b", "c"}}, 1, key(1024));
    EXPECT_EQ(open(token).attributes, (Attributes{{"a", "b=c"}}));
}

TEST(TokenTest, OldAttributesAreReplaced) {
    const std::string token = CryptoUtil::generateAuthToken("u", {}, 1, key(1024));
    EXPECT_EQ(open(token).attributes, Attributes());
}

// ---- Plaintexts that the issuer does not make ----

TEST(TokenTest, AnEntryWithoutEqualsSignHasAnEmptyValue) {
    EXPECT_EQ(open(sealed(plaintext(1, "u", 3, {"flag", "", "=v"}))).attributes,
              (Attributes{{"flag", ""}, {"", "v"}}));
}

TEST(TokenTest, OfEqualNamesTheLastCounts) {
    EXPECT_EQ(open(sealed(plaintext(1, "u", 3, {"a=1", "b=2", "a=3"}))).attributes,
              (Attributes{{"a", "3"}, {"b", "2"}}));
}

TEST(TokenTest, ATokenMayEndBehindTheUser) {
    Bytes data = integer(5);
    data += field("someone");
    EXPECT_EQ(open(sealed(signedBytes(data))), (Result{"someone", {{"(name)", "(value)"}}, 5}));
    EXPECT_EQ(open(sealed(signedBytes(Bytes(8)))), (Result{"", {{"(name)", "(value)"}}, 0}));
}

TEST(TokenTest, BlocksMayHoldLessThanTheyCouldOrNothing) {
    const Bytes whole = plaintext(5, "someone", 2, {"a=1", "b=2"});
    const auto middle = whole.begin() + 40;
    Bytes pieces = sealedInPieces(Bytes(whole.begin(), middle), 20, key(1024));
    pieces += sealedBlock(whole.data(), 0, key(1024));
    pieces += sealedInPieces(Bytes(middle, whole.end()), 20, key(1024));
    EXPECT_EQ(open(CryptoUtil::base64Encode(pieces)),
              (Result{"someone", {{"a", "1"}, {"b", "2"}}, 5}));
}

TEST(TokenTest, TheFirstDigestIsNotChecked) {
    Bytes data = integer(5);
    data += field("u");
    data += Bytes(20, 0xEE);
    data += integer(1);
    data += field("a=b");
    EXPECT_EQ(open(sealed(signedBytes(data))), (Result{"u", {{"a", "b"}}, 5}));
}

TEST(TokenTest, BytesBehindTheLastEntryAreIgnored) {
    EXPECT_EQ(open(sealed(plaintext(1, "u", 1, {"a=1", "b=2", "junk"}))).attributes,
              (Attributes{{"a", "1"}}));
}

TEST(TokenTest, AttributesMayReachIntoTheFinalDigest) {
    Bytes data = head(1, "u");
    data += integer(1);
    data += integer(20);  // an entry whose bytes are the digest that follows
    const Bytes whole = signedBytes(data);
    const std::string digest(whole.end() - 20, whole.end());
    const Attributes attributes = open(sealed(whole)).attributes;
    ASSERT_EQ(attributes.size(), 1U);
    EXPECT_EQ(attributes.begin()->first, digest.substr(0, digest.find('=')));
}

TEST(TokenTest, AttributesMayNotReachBeyondTheFinalDigest) {
    Bytes data = head(1, "u");
    data += integer(1);
    data += integer(21);
    const auto [message, result] = refusal(sealed(signedBytes(data)));
    EXPECT_EQ(message, kTooShort);
    EXPECT_EQ(result, (Result{"u", {{"(name)", "(value)"}}, 1}));
}

// ---- What a failure leaves ----

TEST(TokenTest, APlaintextBelow28BytesIsTooShort) {
    for (std::size_t size = 0; size < 8; ++size) {
        const auto [message, result] = refusal(sealed(signedBytes(Bytes(size))));
        EXPECT_EQ(message, kTooShort) << size;
        EXPECT_EQ(result, Result()) << size;
    }
}

TEST(TokenTest, APlaintextTooSmallForItsDigestAndFieldsIsTooShort) {
    for (std::size_t size = 0; size < 28; ++size) {
        const Bytes block = sealedBlock(Bytes(28, 1).data(), size, key(1024));
        const auto [message, result] = refusal(CryptoUtil::base64Encode(block));
        EXPECT_EQ(message, kTooShort) << size;
        EXPECT_EQ(result, Result()) << size;
    }
}

TEST(TokenTest, ACutUserNameLeavesOnlyTheTimeStamp) {
    Bytes data = integer(99);
    data += integer(5);
    data += bytes("four");
    const auto [message, result] = refusal(sealed(signedBytes(data)));
    EXPECT_EQ(message, kTooShort);
    Result expected;
    expected.timestamp = 99;
    EXPECT_EQ(result, expected);
}

TEST(TokenTest, CutAttributesLeaveTheTimeStampAndTheUser) {
    struct {
        const char* says;
        Bytes behindTheUser;
    } const cases[] = {
        {"one byte of the first digest", Bytes(1)},
        {"three bytes of it", Bytes(3)},
        {"more entries than there are",
         [] {
             Bytes data(20);
             data += integer(1000);
             return data += field("a=b");
         }()},
        {"the greatest number of entries",
         [] {
             Bytes data(20);
             return data += integer(0xFFFFFFFF);
         }()},
        {"an entry of the greatest length",
         [] {
             Bytes data(20);
             data += integer(1);
             return data += integer(0xFFFFFFFF);
         }()},
    };
    for (const auto& cut : cases) {
        Bytes data = integer(7);
        data += field("u");
        data += cut.behindTheUser;
        const auto [message, result] = refusal(sealed(signedBytes(data)));
        EXPECT_EQ(message, kTooShort) << cut.says;
        EXPECT_EQ(result, (Result{"u", {{"(name)", "(value)"}}, 7})) << cut.says;
    }
}

TEST(TokenTest, ASectionOfAttributesCutAnywhereNeverReadsBeyondTheEnd) {
    const Bytes whole = plaintext(1, "user", 2, {"a=1", "b=2"});
    for (std::size_t size = 12; size < whole.size() - 20; ++size) {
        Bytes data(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        const auto [message, result] = refusal(sealed(signedBytes(data)));
        EXPECT_TRUE(message == kTooShort || message == "(opened)") << size << ": " << message;
        EXPECT_EQ(result.user, "user") << size;
    }
}

TEST(TokenTest, AnyChangedByteOfThePlaintextBreaksTheDigest) {
    const Bytes whole = plaintext(1, "user", 2, {"a=1", "b=2"});
    for (std::size_t at = 0; at < whole.size(); ++at) {
        Bytes changed = whole;
        changed[at] ^= 1;
        const auto [message, result] = refusal(sealed(changed));
        EXPECT_EQ(message, kNotValid) << at;
        EXPECT_EQ(result, Result()) << at;
    }
}

// The messages with which `tokens` are refused; each must leave the results alone.
template <class Tokens>
std::set<std::string> refusals(const Tokens& tokens, RSA* with) {
    std::set<std::string> messages;
    for (const std::string& token : tokens) {
        const auto [message, result] = refusal(token, with);
        messages.insert(message);
        EXPECT_EQ(result, Result()) << token;
    }
    return messages;
}

const std::string kSeveral = CryptoUtil::generateAuthToken(
    "someone", {{"a", std::string(400, 'a')}, {"b", "c"}}, 1000, key(1024));

TEST(TokenTest, ATokenCutAnywhereIsRefused) {
    std::vector<std::string> cut;
    for (std::size_t size = 0; size < kSeveral.size(); ++size) {
        cut.push_back(kSeveral.substr(0, size));
    }
    // Behind three blocks, which fill whole groups of base64, the cut leaves a plaintext whose last
    // 20 bytes are no digest.
    EXPECT_THAT(refusals(cut, key(1024)), UnorderedElementsAre(kTooShort, kNoDecrypt, kNotValid));
}

TEST(TokenTest, ATokenWithAnyChangedByteIsRefused) {
    const Bytes ciphertext = CryptoUtil::base64Decode(kSeveral);
    std::vector<std::string> changed;
    for (std::size_t at = 0; at < ciphertext.size(); ++at) {
        Bytes tampered = ciphertext;
        tampered[at] ^= 0x80;
        changed.push_back(CryptoUtil::base64Encode(tampered));
    }
    EXPECT_THAT(refusals(changed, key(1024)), UnorderedElementsAre(kNoDecrypt));
}

TEST(TokenTest, BlocksInAnotherOrderAreRefused) {
    Bytes swapped = CryptoUtil::base64Decode(kSeveral);
    ASSERT_EQ(swapped.size(), 5 * 128U);
    std::swap_ranges(swapped.begin(), swapped.begin() + 128, swapped.begin() + 128);
    EXPECT_EQ(refusal(CryptoUtil::base64Encode(swapped)).first, kNotValid);
}

TEST(TokenTest, ARestThatIsNoWholeBlockIsRefusedBeforeAnyIsDecrypted) {
    const Bytes whole = CryptoUtil::base64Decode(kSeveral);
    std::vector<std::string> tokens;
    for (std::size_t more = 1; more < 128; ++more) {
        Bytes longer = whole;
        tokens.push_back(CryptoUtil::base64Encode(longer += Bytes(more, 1)));
        tokens.push_back(CryptoUtil::base64Encode(Bytes(more, 1)));
    }
    const unsigned long before = Fault::calls(Call::RSA_public_decrypt);
    EXPECT_THAT(refusals(tokens, key(1024)), UnorderedElementsAre(kNoDecrypt));
    EXPECT_EQ(Fault::calls(Call::RSA_public_decrypt), before);
}

TEST(TokenTest, TextThatDecodesToNothingIsTooShort) {
    EXPECT_THAT(refusals(std::vector<std::string>{"", "!", "not base64", "\n"}, key(1024)),
                UnorderedElementsAre(kTooShort));
}

// The messages with which a token is refused while each of `calls` fails in turn; each must leave
// the results alone.
std::set<std::string> refusalsWithout(std::initializer_list<Call> calls, int number) {
    std::set<std::string> messages;
    Result result;
    const auto openAnew = [&] {
        result = Result();
        open(kSeveral, result);
    };
    failEachCallInTurn(calls, number, openAnew, [&](const Failure& failure) {
        if (failure.thrown == nullptr) return;
        messages.insert(failure.messageOf<Exception>());
        EXPECT_EQ(result, Result()) << describe(failure);
    });
    return messages;
}

TEST(TokenTest, FailuresOfTheDecoderKeepTheirSentences) {
    EXPECT_THAT(refusalsWithout({Call::BIO_new, Call::BIO_new_mem_buf, Call::BIO_ctrl}, 0),
                UnorderedElementsAre("Could not allocate base64 BIO.",
                                     "Could not allocate input memory buffer BIO.",
                                     "Could not allocate output memory BIO.",
                                     "Could not get memory buffer from BIO."));
    EXPECT_THAT(refusalsWithout({Call::BIO_read, Call::BIO_write}, -1),
                UnorderedElementsAre("Could not read from BIO."));
}

TEST(TokenTest, AFailureOfTheEncoderKeepsItsSentence) {
    const Fault fault(Call::BIO_new, 0);
    EXPECT_THAT([] { (void)CryptoUtil::generateAuthToken("u", {}, 1, key(1024)); },
                ThrowsMessage<Exception>("Could not allocate base64 BIO."));
}

// ---- RSA that fails ----

TEST(TokenTest, EveryBlockHasToBeEncryptedWhole) {
    const auto issue = [] {
        (void)CryptoUtil::generateAuthToken(std::string(300, 'u'), {}, 1, key(1024));
    };
    for (const int result : {-1, 0, 127, 129}) {
        failEachCallInTurn({Call::RSA_private_encrypt}, result, issue, [](const Failure& failure) {
            EXPECT_EQ(failure.messageOf<Exception>(), kNoEncrypt);
        });
    }
}

TEST(TokenTest, EveryBlockHasToBeDecrypted) {
    failEachCallInTurn(
        {Call::RSA_public_decrypt}, -1, [] { (void)open(kSeveral); },
        [](const Failure& failure) { EXPECT_EQ(failure.messageOf<Exception>(), kNoDecrypt); });
}

TEST(TokenTest, AKeyWithoutItsPrivateHalfCannotIssue) {
    const RsaPtr reader = publicKey(key(1024));
    EXPECT_THAT([&] { (void)CryptoUtil::generateAuthToken("u", {}, 1, reader.get()); },
                ThrowsMessage<Exception>(kNoEncrypt));
}

// A key of so many bits, which is good for nothing else.
RsaPtr keyOfSize(int bits) {
    RsaPtr made(RSA_new());
    BIGNUM* const modulus = BN_new();
    BIGNUM* const exponent = BN_new();
    BN_set_bit(modulus, bits - 1);
    BN_set_word(exponent, 3);
    EXPECT_EQ(RSA_set0_key(made.get(), modulus, exponent, nullptr), 1);
    return made;
}

TEST(TokenTest, AKeyTooSmallForItsPaddingIsRefused) {
    for (const int bits : {8, 80, 88}) {
        const RsaPtr small = keyOfSize(bits);
        EXPECT_THAT([&] { (void)CryptoUtil::generateAuthToken("u", {}, 1, small.get()); },
                    ThrowsMessage<Exception>(kNoEncrypt));
        EXPECT_EQ(refusal(kSeveral, small.get()).first, kNoDecrypt);
        EXPECT_EQ(refusal("", small.get()).first, kTooShort);
    }
}

TEST(TokenTest, AKeyTooLargeForOpenSslIsRefusedUnasked) {
    const RsaPtr largest = keyOfSize(OPENSSL_RSA_MAX_MODULUS_BITS);
    const RsaPtr larger = keyOfSize(OPENSSL_RSA_MAX_MODULUS_BITS + 8);
    const auto tokenOf = [](const RsaPtr& key) {
        return CryptoUtil::base64Encode(Bytes(static_cast<std::size_t>(RSA_size(key.get())), 1));
    };
    const unsigned long before = Fault::calls(Call::RSA_public_decrypt);
    EXPECT_EQ(refusal(tokenOf(larger), larger.get()).first, kNoDecrypt);
    EXPECT_EQ(Fault::calls(Call::RSA_public_decrypt), before);
    EXPECT_EQ(refusal(tokenOf(largest), largest.get()).first, kNoDecrypt);
    EXPECT_EQ(Fault::calls(Call::RSA_public_decrypt), before + 1);
}

// Decrypts as OpenSSL does, but writes before it reads.
int wipeAndDecrypt(int size, const unsigned char* from, unsigned char* to, RSA* rsa, int padding) {
    std::memset(to, 0, static_cast<std::size_t>(size - RSA_PKCS1_PADDING_SIZE));
    return RSA_meth_get_pub_dec(RSA_PKCS1_OpenSSL())(size, from, to, rsa, padding);
}

TEST(TokenTest, AnRsaMethodMayWriteBeforeItHasRead) {
    const std::unique_ptr<RSA_METHOD, void (*)(RSA_METHOD*)> method(
        RSA_meth_dup(RSA_PKCS1_OpenSSL()), RSA_meth_free);
    ASSERT_EQ(RSA_meth_set_pub_dec(method.get(), wipeAndDecrypt), 1);
    const RsaPtr own(RSAPublicKey_dup(key(1024)));
    ASSERT_EQ(RSA_set_method(own.get(), method.get()), 1);
    EXPECT_EQ(open(kSeveral, own.get()), open(kSeveral));
}

TEST(TokenTest, ABlockMayHoldAPieceOfOneByte) {
    const RsaPtr small = keyOfSize(96);
    const Fault encrypted(Call::RSA_private_encrypt, 12, 1, Fault::fromThenOn);
    const std::string token = CryptoUtil::generateAuthToken("", {}, 1, small.get());
    EXPECT_EQ(CryptoUtil::base64Decode(token).size(), 52U * 12U);
}

TEST(TokenTest, TheErrorQueueIsNeitherReadNorCleared) {
    ERR_clear_error();
    ERR_put_error(ERR_LIB_USER, 0, 42, "here", 1);
    (void)open(CryptoUtil::generateAuthToken("u", {}, 1, key(1024)));
    EXPECT_EQ(refusal("AAAA").first, kNoDecrypt);
    EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), 42);
    EXPECT_EQ(ERR_get_error(), 0U);
}

// What a failed RSA call queued follows what the caller has there.
TEST(TokenTest, TheErrorQueueKeepsWhyRsaFailed) {
    const RsaPtr reader = publicKey(key(1024));
    const std::function<void()> refused[] = {
        [&] { (void)CryptoUtil::generateAuthToken("u", {}, 1, reader.get()); },
        [&] { (void)open(CryptoUtil::base64Encode(Bytes(128, 1)), reader.get()); },
    };
    for (const auto& operation : refused) {
        ERR_clear_error();
        ERR_put_error(ERR_LIB_USER, 0, 42, "here", 1);
        EXPECT_THROW(operation(), Exception);
        EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), 42);
        EXPECT_EQ(ERR_GET_LIB(ERR_peek_error()), ERR_LIB_RSA);
    }
    ERR_clear_error();
}

// ---- Threads ----

TEST(TokenTest, ThreadsMayShareAKey) {
    RSA* const shared = key(1024);
    std::vector<std::thread> threads;
    for (long id = 0; id < 4; ++id) {
        threads.emplace_back([id, shared] {
            for (int i = 0; i < 20; ++i) {
                const std::string token = CryptoUtil::generateAuthToken("u", {}, id, shared);
                EXPECT_EQ(open(token, shared).timestamp, id);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
