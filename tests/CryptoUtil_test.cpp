// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/CryptoUtil.h>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <openssl/bio.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <iterator>
#include <thread>
#include <type_traits>

#include <tarnutil/Exception.h>

#include "fail_each.h"
#include "fault.h"
#include "leaks.h"
#include "scratch_dir.h"
#include "trail.h"

namespace {

using tarnutil::CryptoUtil;
using tarnutil::Exception;
using namespace tarnutil_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;
using testing::UnorderedElementsAre;

using Bytes = std::vector<unsigned char>;

static_assert(!std::is_default_constructible_v<CryptoUtil>);

Bytes bytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

// Bytes of every value in a repeating but uneven order.
Bytes sample(std::size_t size) {
    Bytes data(size);
    for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<unsigned char>(i * 7 + i / 256);
    return data;
}

std::string hex(const Bytes& data) {
    std::string text;
    for (const unsigned char byte : data) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

// The BIOs that were freed, in that order, while a test listens.
std::vector<std::string>* freed_bios = nullptr;

// What a BIO is for in a conversion. Of the two in memory only the source is never written to.
const char* roleOf(const BIO* bio) {
    if (BIO_method_type(bio) == BIO_TYPE_BASE64) return "filter";
    return BIO_test_flags(bio, BIO_FLAGS_MEM_RDONLY) != 0 ? "source" : "sink";
}

// The sizes of the blocks that the library asks OpenSSL for, while a test listens; and whether it
// gets them.
std::vector<std::size_t>* asked_sizes = nullptr;
bool has_blocks = true;

}  // namespace

extern "C" void BIO_vfree(BIO* bio) {
    static const auto next = reinterpret_cast<void (*)(BIO*)>(dlsym(RTLD_NEXT, "BIO_vfree"));
    if (freed_bios != nullptr) freed_bios->emplace_back(roleOf(bio));
    next(bio);
}

extern "C" void* counted_crypto_malloc(std::size_t size, const char* file,
                                       int line) __asm__("CRYPTO_malloc");
extern "C" void* counted_crypto_malloc(std::size_t size, const char* file, int line) {
    static const auto next =
        reinterpret_cast<decltype(&counted_crypto_malloc)>(dlsym(RTLD_NEXT, "CRYPTO_malloc"));
    const bool ours = std::strstr(file, "CryptoUtil.cpp") != nullptr;
    if (ours && asked_sizes != nullptr) asked_sizes->push_back(size);
    return ours && !has_blocks ? nullptr : next(size, file, line);
}

namespace {

// ---- Base64 ----

struct Base64Case {
    const char* data;
    const char* text;
};
const Base64Case kBase64Cases[] = {
    // clang-format off
    // data     text
    {"",        ""},
    {"f",       "Zg=="},
    {"fo",      "Zm8="},
    {"foo",     "Zm9v"},
    {"foob",    "Zm9vYg=="},
    {"fooba",   "Zm9vYmE="},
    {"foobar",  "Zm9vYmFy"},
    {"\xff\xef\xbf", "/++/"},
    // clang-format on
};

TEST(Base64Test, KnownTextsStandForKnownBytes) {
    for (const Base64Case& known : kBase64Cases) {
        EXPECT_EQ(CryptoUtil::base64Encode(bytes(known.data)), known.text);
        EXPECT_EQ(CryptoUtil::base64Decode(known.text), bytes(known.data)) << known.text;
    }
}

TEST(Base64Test, AHundredBytesAreOneLineOf136Characters) {
    const std::string text = CryptoUtil::base64Encode(sample(100));
    EXPECT_EQ(text.size(), 136U);
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);
}

// The text that OpenSSL's block encoder makes of `data`.
std::string blockEncoded(const Bytes& data) {
    std::string text(data.size() / 3 * 4 + 5, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), data.data(),
                                       static_cast<int>(data.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

TEST(Base64Test, EverySizeGoesThereAndBack) {
    std::vector<std::size_t> sizes = {4095, 4096, 4097, 65536, 1000003};
    for (std::size_t size = 0; size < 1600; ++size) sizes.push_back(size);
    for (const std::size_t size : sizes) {
        const Bytes data = sample(size);
        const std::string text = CryptoUtil::base64Encode(data);
        ASSERT_EQ(text, blockEncoded(data)) << size;
        ASSERT_EQ(CryptoUtil::base64Decode(text), data) << size;
    }
}

// What the filter itself gives for `text`, read in one go.
Bytes filtered(const std::string& text) {
    BIO* const filter = BIO_new(BIO_f_base64());
    BIO_set_flags(filter, BIO_FLAGS_BASE64_NO_NL);
    BIO_push(filter, BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    Bytes data(text.size() + 1);
    const int size = BIO_read(filter, data.data(), static_cast<int>(data.size()));
    data.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    BIO_free_all(filter);
    return data;
}

TEST(Base64Test, TextThatIsNoBase64IsLeftToTheFilter) {
    for (const char* text :
         {"QUJD\n", "QUJD\nREVG", "\nQUJD", " QUJD ", "QUJD REVG", "QUJ", "Q", "QQ==QUJD",
          "====", "!!!!", "QUJD!EVG", "QUJDRE", "-_-_", "QUJD\r\n"}) {
        EXPECT_EQ(CryptoUtil::base64Decode(text), filtered(text)) << text;
    }
}

TEST(Base64Test, ALineBreakInsideLosesWhatIsThere) {
    EXPECT_THAT(CryptoUtil::base64Decode("QUJD\nREVG"), IsEmpty());
    EXPECT_EQ(CryptoUtil::base64Decode("QUJDREVG\n"), bytes("ABCDEF"));
    std::string text = CryptoUtil::base64Encode(sample(3000));
    text.insert(1500, "\n");
    EXPECT_LT(CryptoUtil::base64Decode(text).size(), 3000U);
}

const std::string kNoFilter = "Could not allocate base64 BIO.";
const std::string kNoSink = "Could not allocate output memory BIO.";
const std::string kNoSource = "Could not allocate input memory buffer BIO.";
const std::string kNoWrite = "Could not write to BIO.";
const std::string kNoFlush = "Could not flush BIO.";
const std::string kNoRead = "Could not read from BIO.";
const std::string kNoBuffer = "Could not get memory buffer from BIO.";

const std::string kText = "QUJD";

TEST(Base64Test, EachBioThatIsMissingHasItsSentence) {
    const auto encode = [] { (void)CryptoUtil::base64Encode(bytes("ABC")); };
    const auto decode = [] { (void)CryptoUtil::base64Decode(kText); };
    {
        const Fault fault(Call::BIO_new, 0, 1);
        EXPECT_THAT(encode, ThrowsMessage<Exception>(kNoFilter));
    }
    {
        const Fault fault(Call::BIO_new, 0, 2);
        EXPECT_THAT(encode, ThrowsMessage<Exception>(kNoSink));
    }
    {
        const Fault fault(Call::BIO_new, 0, 1);
        EXPECT_THAT(decode, ThrowsMessage<Exception>(kNoFilter));
    }
    {
        const Fault fault(Call::BIO_new_mem_buf, 0);
        EXPECT_THAT(decode, ThrowsMessage<Exception>(kNoSource));
    }
}

TEST(Base64Test, TheSourceIsMadeBeforeTheSink) {
    const Fault noSource(Call::BIO_new_mem_buf, 0);
    const Fault noSink(Call::BIO_new, 0, 2, Fault::fromThenOn);
    EXPECT_THAT([] { (void)CryptoUtil::base64Decode(kText); }, ThrowsMessage<Exception>(kNoSource));
}

TEST(Base64Test, AShortWriteIsRefused) {
    const Fault fault(Call::BIO_write, 2);
    EXPECT_THAT([] { (void)CryptoUtil::base64Encode(bytes("ABC")); },
                ThrowsMessage<Exception>(kNoWrite));
}

TEST(Base64Test, AShortWriteOfDecodedBytesIsReportedAsARead) {
    const Fault fault(Call::BIO_write, 2);
    EXPECT_THAT([] { (void)CryptoUtil::base64Decode(kText); }, ThrowsMessage<Exception>(kNoRead));
}

TEST(Base64Test, TheFirstOfSeveralFailuresIsReported) {
    const Fault nothingIsAnswered(Call::BIO_ctrl, 0, 1, Fault::fromThenOn);
    const auto encode = [] { (void)CryptoUtil::base64Encode(bytes("ABC")); };
    EXPECT_THAT(encode, ThrowsMessage<Exception>(kNoFlush));
    {
        const Fault fault(Call::BIO_write, 2);
        EXPECT_THAT(encode, ThrowsMessage<Exception>(kNoWrite));
    }
    const Fault fault(Call::BIO_read, -1);
    EXPECT_THAT([] { (void)CryptoUtil::base64Decode(kText); }, ThrowsMessage<Exception>(kNoRead));
}

TEST(Base64Test, OnlyAReadOfMinusOneIsAnError) {
    {
        const Fault fault(Call::BIO_read, -1);
        EXPECT_THAT([] { (void)CryptoUtil::base64Decode(kText); },
                    ThrowsMessage<Exception>(kNoRead));
    }
    for (const int end : {0, -2, -3}) {
        const Fault fault(Call::BIO_read, end);
        EXPECT_THAT(CryptoUtil::base64Decode(kText), IsEmpty()) << end;
    }
}

TEST(Base64Test, AllBytesAreWrittenAtOnce) {
    const Bytes data = sample(5000);
    const Trail trail({Call::BIO_write});
    (void)CryptoUtil::base64Encode(data);
    const std::vector<std::string> writes = trail.ofParent();
    EXPECT_EQ(std::count(writes.begin(), writes.end(), "BIO_write(5000)"), 1);
}

// The uses of `call` while `text` is decoded, OpenSSL's own among them: "BIO_read(512)" is one of
// the library's.
std::vector<std::string> stepsOfDecoding(const std::string& text, Call call) {
    const Trail trail({call});
    (void)CryptoUtil::base64Decode(text);
    return trail.ofParent();
}

TEST(Base64Test, DecodedBytesMoveInStepsOf512) {
    const std::string text = CryptoUtil::base64Encode(sample(3 * 512 + 100));
    EXPECT_THAT(
        stepsOfDecoding(text, Call::BIO_write),
        ElementsAre("BIO_write(512)", "BIO_write(512)", "BIO_write(512)", "BIO_write(100)"));
    const std::vector<std::string> reads = stepsOfDecoding(text, Call::BIO_read);
    EXPECT_EQ(std::count(reads.begin(), reads.end(), "BIO_read(512)"), 5) << "the last for the end";
}

struct LateReadCase {
    const char* says;
    int result;  // of the library's third read
    bool refused;
};
const LateReadCase kLateReadCases[] = {
    // clang-format off
    // says                          result  refused
    {"an error",                     -1,     true},
    {"the end",                      0,      false},
    {"no such operation",            -2,     false},
    {"any other negative number",    -3,     false},
    // clang-format on
};

// Which of all reads is the library's third.
unsigned long thirdReadOf(const std::string& text) {
    const std::vector<std::string> reads = stepsOfDecoding(text, Call::BIO_read);
    auto found = reads.begin();
    for (int passed = 0; passed < 2; ++passed) {
        found = std::next(std::find(found, reads.end(), "BIO_read(512)"));
    }
    found = std::find(found, reads.end(), "BIO_read(512)");
    return static_cast<unsigned long>(found - reads.begin()) + 1;
}

TEST(Base64Test, DecodingMayEndOrFailBehindSomeBytes) {
    const Bytes data = sample(2000);
    const std::string text = CryptoUtil::base64Encode(data);
    const unsigned long third = thirdReadOf(text);
    for (const LateReadCase& row : kLateReadCases) {
        SCOPED_TRACE(row.says);
        const Fault fault(Call::BIO_read, row.result, third);
        if (row.refused) {
            EXPECT_THAT([&] { (void)CryptoUtil::base64Decode(text); },
                        ThrowsMessage<Exception>(kNoRead));
        } else {
            EXPECT_EQ(CryptoUtil::base64Decode(text), Bytes(data.begin(), data.begin() + 2 * 512));
        }
        EXPECT_TRUE(fault.hasFired());
    }
}

// What `base64` asks for by OPENSSL_malloc while it converts.
std::vector<std::size_t> sizesAskedFor(const std::function<void()>& base64) {
    std::vector<std::size_t> sizes;
    asked_sizes = &sizes;
    base64();
    asked_sizes = nullptr;
    return sizes;
}

TEST(Base64Test, TheSinkIsGivenItsSizeAtOnce) {
    for (const std::size_t size : {1U, 2U, 3U, 510U, 511U, 1300U}) {
        SCOPED_TRACE(size);
        const Bytes data = sample(size);
        const std::string text = CryptoUtil::base64Encode(data);
        EXPECT_THAT(sizesAskedFor([&] { (void)CryptoUtil::base64Encode(data); }),
                    ElementsAre(text.size()));
        // What one step writes makes its own room.
        std::vector<std::size_t> room;
        if (size > 510) room.push_back((size + 2) / 3 * 3);
        EXPECT_EQ(sizesAskedFor([&] { (void)CryptoUtil::base64Decode(text); }), room);
    }
}

TEST(Base64Test, ASinkWithoutItsSizeGrows) {
    for (const std::size_t size : {1U, 2U, 3U, 1300U}) {
        has_blocks = false;
        const std::string text = CryptoUtil::base64Encode(sample(size));
        const Bytes data = CryptoUtil::base64Decode(text);
        has_blocks = true;
        EXPECT_EQ(text, blockEncoded(sample(size)));
        EXPECT_EQ(data, sample(size));
    }
}

using Messages = std::set<std::string>;

// The messages of `run` with each of `calls` failing in turn.
Messages messagesOf(std::initializer_list<Call> calls, int number,
                    const std::function<void()>& run) {
    Messages messages;
    failEachCallInTurn(calls, number, run, [&](const Failure& failure) {
        if (failure.thrown != nullptr) messages.insert(failure.messageOf<Exception>());
    });
    return messages;
}

TEST(Base64Test, NoFailureOfTheEncoderLeaksOrSaysAnythingElse) {
    const Bytes data = sample(5000);
    const auto encode = [&] { (void)CryptoUtil::base64Encode(data); };
    EXPECT_THAT(messagesOf({Call::BIO_new, Call::BIO_ctrl}, 0, encode),
                UnorderedElementsAre(kNoFilter, kNoSink, kNoFlush, kNoBuffer));
    // Of a write that fails inside OpenSSL's filter only the flush may learn.
    EXPECT_THAT(messagesOf({Call::BIO_write}, -1, encode),
                UnorderedElementsAre(kNoWrite, kNoFlush));
}

TEST(Base64Test, AnyOtherAnswerThanOneIsAFailure) {
    const auto encode = [] { (void)CryptoUtil::base64Encode(bytes("ABC")); };
    const auto decode = [] { (void)CryptoUtil::base64Decode(kText); };
    EXPECT_THAT(messagesOf({Call::BIO_ctrl}, 2, encode), UnorderedElementsAre(kNoFlush, kNoBuffer));
    EXPECT_THAT(messagesOf({Call::BIO_ctrl}, 2, decode), UnorderedElementsAre(kNoBuffer));
}

TEST(Base64Test, NoFailureOfTheDecoderLeaksOrSaysAnythingElse) {
    const std::string text = CryptoUtil::base64Encode(sample(5000));
    const auto decode = [&] { (void)CryptoUtil::base64Decode(text); };
    EXPECT_THAT(messagesOf({Call::BIO_new, Call::BIO_new_mem_buf, Call::BIO_ctrl}, 0, decode),
                UnorderedElementsAre(kNoFilter, kNoSource, kNoSink, kNoBuffer));
    EXPECT_THAT(messagesOf({Call::BIO_read, Call::BIO_write}, -1, decode),
                UnorderedElementsAre(kNoRead));
}

// What `run` frees, whether or not it throws.
template <class Run>
std::vector<std::string> freedBy(const Run& run) {
    std::vector<std::string> freed;
    freed_bios = &freed;
    try {
        run();
    } catch (const Exception&) {
        // the caller asks for what was freed on the way
    }
    freed_bios = nullptr;
    return freed;
}

TEST(Base64Test, TheSinkIsFreedFirstAndTheFilterLast) {
    const auto encode = [] { (void)CryptoUtil::base64Encode(bytes("ABC")); };
    const auto decode = [] { (void)CryptoUtil::base64Decode(kText); };
    EXPECT_THAT(freedBy(encode), ElementsAre("sink", "filter"));
    EXPECT_THAT(freedBy(decode), ElementsAre("sink", "source", "filter"));
    {
        const Fault shortWrite(Call::BIO_write, 2);
        EXPECT_THAT(freedBy(encode), ElementsAre("sink", "filter"));
    }
    {
        const Fault shortWrite(Call::BIO_write, 2);
        EXPECT_THAT(freedBy(decode), ElementsAre("sink", "source", "filter"));
    }
    const Fault failedRead(Call::BIO_read, -1);
    EXPECT_THAT(freedBy(decode), ElementsAre("sink", "source", "filter"));
}

// ---- Digests ----

struct DigestCase {
    const char* says;
    std::string data;
    const char* sha1;
    const char* md5;
};
const DigestCase kDigestCases[] = {
    // clang-format off
    // says             data                        SHA-1                                       MD5
    {"nothing",         "",                         "da39a3ee5e6b4b0d3255bfef95601890afd80709", "d41d8cd98f00b204e9800998ecf8427e"},
    {"three letters",   "abc",                      "a9993e364706816aba3e25717850c26c9cd0d89d", "900150983cd24fb0d6963f7d28e17f72"},
    {"a million times", std::string(1000000, 'a'),  "34aa973cd4c4daa4f61eeb2bdbad27316534016f", "7707d6ae4e027c70eea2a935c2296f21"},
    // clang-format on
};

TEST(DigestTest, KnownDataHasKnownDigests) {
    const ScratchDir dir;
    for (const DigestCase& known : kDigestCases) {
        SCOPED_TRACE(known.says);
        Bytes data = bytes(known.data);
        EXPECT_EQ(hex(CryptoUtil::computeSha1Digest(data)), known.sha1);
        EXPECT_EQ(hex(CryptoUtil::computeMd5Digest(data)), known.md5);
        EXPECT_EQ(data, bytes(known.data));
        const std::string file = dir.write("file", known.data);
        EXPECT_EQ(hex(CryptoUtil::computeSha1Digest(file)), known.sha1);
        EXPECT_EQ(hex(CryptoUtil::computeMd5Digest(file)), known.md5);
    }
}

TEST(DigestTest, AFileOfAnySizeHasTheDigestOfItsContent) {
    const ScratchDir dir;
    for (const std::size_t size : {1U, 4095U, 4096U, 4097U, 16384U, 16385U, 100000U}) {
        Bytes data = sample(size);
        const std::string file = dir.write("file", std::string(data.begin(), data.end()));
        EXPECT_EQ(CryptoUtil::computeSha1Digest(file), CryptoUtil::computeSha1Digest(data)) << size;
        EXPECT_EQ(CryptoUtil::computeMd5Digest(file), CryptoUtil::computeMd5Digest(data)) << size;
    }
}

TEST(DigestTest, AMissingFileIsRefusedWithItsPathInQuotes) {
    const std::string missing = "/no/such";
    const std::string message =
        "Could not open file \"/no/such\" for reading: " + Exception::getStrerror(ENOENT);
    EXPECT_THAT([&] { (void)CryptoUtil::computeSha1Digest(missing); },
                ThrowsMessage<Exception>(message));
    EXPECT_THAT([&] { (void)CryptoUtil::computeMd5Digest(missing); },
                ThrowsMessage<Exception>(message));
}

TEST(DigestTest, TheErrorOfTheFailedOpenIsReported) {
    const std::string path = "/dev/null";
    const std::string message =
        "Could not open file \"/dev/null\" for reading: " + Exception::getStrerror(EMFILE);
    failEachCallInTurn(
        {Call::fopen}, EMFILE, [&] { (void)CryptoUtil::computeSha1Digest(path); },
        [&](const Failure& failure) { EXPECT_EQ(failure.messageOf<Exception>(), message); });
}

TEST(DigestTest, AReadErrorCountsAsTheEndOfTheFile) {
    const ScratchDir dir;
    Bytes data = sample(10000);
    const std::string file = dir.write("file", std::string(data.begin(), data.end()));
    data.resize(4096);
    const std::set<int> before = openDescriptors();
    {
        const Fault fault(Call::fread, 0, 2);
        EXPECT_EQ(CryptoUtil::computeSha1Digest(file), CryptoUtil::computeSha1Digest(data));
    }
    {
        const Fault fault(Call::fread, 0, 2);
        EXPECT_EQ(CryptoUtil::computeMd5Digest(file), CryptoUtil::computeMd5Digest(data));
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(DigestTest, ThreadsDigestFilesAtTheSameTime) {
    const ScratchDir dir;
    const auto work = [&](std::size_t size) {
        Bytes data = sample(size);
        const std::string file =
            dir.write(std::to_string(size), std::string(data.begin(), data.end()));
        for (int round = 0; round < 50; ++round) {
            EXPECT_EQ(CryptoUtil::computeSha1Digest(file), CryptoUtil::computeSha1Digest(data));
            EXPECT_EQ(CryptoUtil::computeMd5Digest(file), CryptoUtil::computeMd5Digest(data));
        }
    };
    std::vector<std::thread> threads;
    for (const std::size_t size : {1U, 5000U, 20000U, 40000U}) threads.emplace_back(work, size);
    for (std::thread& thread : threads) thread.join();
}

TEST(DigestTest, ADirectoryHasTheDigestOfNothing) {
    EXPECT_EQ(hex(CryptoUtil::computeSha1Digest(std::string("/"))), kDigestCases[0].sha1);
}

TEST(DigestTest, AFileIsReadInStepsOf4096AndClosedOnce) {
    const ScratchDir dir;
    const std::pair<std::size_t, unsigned long> cases[] = {
        {0, 1}, {4096, 2}, {4097, 3}, {12288, 4}};
    for (const auto& [size, steps] : cases) {
        SCOPED_TRACE(size);
        const std::string file = dir.write("file", std::string(size, 'x'));
        const unsigned long reads = Fault::calls(Call::fread);
        const unsigned long closes = Fault::calls(Call::fclose);
        (void)CryptoUtil::computeSha1Digest(file);
        EXPECT_EQ(Fault::calls(Call::fread), reads + steps);
        EXPECT_EQ(Fault::calls(Call::fclose), closes + 1);
    }
}

TEST(DigestTest, NothingButMemoryIsEverMissing) {
    const Fault noSha1(Call::SHA1, 0, 1, Fault::fromThenOn);
    const Fault noMd5(Call::MD5, 0, 1, Fault::fromThenOn);
    for (const DigestCase& row : kDigestCases) {
        Bytes data = bytes(row.data);
        EXPECT_EQ(hex(CryptoUtil::computeSha1Digest(data)), row.sha1);
        EXPECT_EQ(hex(CryptoUtil::computeMd5Digest(data)), row.md5);
    }
    EXPECT_TRUE(noSha1.hasFired());
    EXPECT_TRUE(noMd5.hasFired());
}

TEST(DigestTest, AFailedCloseIsNotReported) {
    const ScratchDir dir;
    const std::string file = dir.write("file", "abc");
    const Fault fault(Call::fclose, EIO);
    EXPECT_EQ(hex(CryptoUtil::computeSha1Digest(file)), kDigestCases[1].sha1);
    EXPECT_TRUE(fault.hasFired());
}

// ---- The field codec ----

const std::string kTooShort = "Not enough data in authentication token.";

TEST(CodecTest, AnIntegerIsFourBytesLeastSignificantFirst) {
    Bytes out = {9};
    CryptoUtil::insertUInt32T(out, 1);
    CryptoUtil::insertUInt32T(out, 0x11223344);
    EXPECT_THAT(out, ElementsAre(9, 1, 0, 0, 0, 0x44, 0x33, 0x22, 0x11));
}

TEST(CodecTest, AStringIsItsLengthAndItsBytes) {
    Bytes out = {9};
    CryptoUtil::insertString(out, "ab");
    CryptoUtil::insertString(out, "");
    CryptoUtil::insertString(out, std::string("\0x", 2));
    EXPECT_THAT(out, ElementsAre(9, 2, 0, 0, 0, 'a', 'b', 0, 0, 0, 0, 2, 0, 0, 0, 0, 'x'));
}

TEST(CodecTest, AHashCoversAllThatPrecedesIt) {
    Bytes out;
    CryptoUtil::insertHash(out);
    EXPECT_EQ(hex(out), kDigestCases[0].sha1);
    Bytes first = out;
    CryptoUtil::insertHash(out);
    EXPECT_EQ(Bytes(out.begin() + 20, out.end()), CryptoUtil::computeSha1Digest(first));
}

TEST(CodecTest, BytesOfAnIntegerAreReversed) {
    EXPECT_EQ(CryptoUtil::swapEndian(0x11223344U), 0x44332211U);
    EXPECT_EQ(CryptoUtil::swapEndian(0xFF000000U), 0xFFU);
    EXPECT_EQ(CryptoUtil::swapEndian(0), 0U);
}

// A cursor over some bytes, and where it is.
struct Reader {
    explicit Reader(Bytes content) : data(std::move(content)) {}

    Bytes data;
    unsigned char* cursor = data.data();
    unsigned long remaining = data.size();

    long position() const { return cursor - data.data(); }
};

TEST(CodecTest, FieldsAreReadInTurn) {
    Reader reader({0x44, 0x33, 0x22, 0x91, 2, 0, 0, 0, 'a', 'b', 0, 0, 0, 0, 7});
    EXPECT_EQ(CryptoUtil::getUInt32T(reader.cursor, reader.remaining), 0x91223344U);
    EXPECT_EQ(reader.position(), 4);
    EXPECT_EQ(reader.remaining, 11U);
    EXPECT_EQ(CryptoUtil::getString(reader.cursor, reader.remaining), "ab");
    EXPECT_EQ(reader.position(), 10);
    EXPECT_EQ(reader.remaining, 5U);
    EXPECT_EQ(CryptoUtil::getString(reader.cursor, reader.remaining), "");
    EXPECT_EQ(reader.position(), 14);
    EXPECT_EQ(reader.remaining, 1U);
}

TEST(CodecTest, AnIntegerThatIsCutShortMovesNothing) {
    for (std::size_t size = 0; size < 4; ++size) {
        Reader reader(Bytes(size, 1));
        EXPECT_THAT([&] { (void)CryptoUtil::getUInt32T(reader.cursor, reader.remaining); },
                    ThrowsMessage<Exception>(kTooShort));
        EXPECT_THAT([&] { (void)CryptoUtil::getString(reader.cursor, reader.remaining); },
                    ThrowsMessage<Exception>(kTooShort));
        EXPECT_EQ(reader.position(), 0);
        EXPECT_EQ(reader.remaining, size);
    }
}

TEST(CodecTest, AStringThatIsCutShortLeavesItsLengthRead) {
    for (std::size_t size = 0; size < 10; ++size) {
        Bytes data = {10, 0, 0, 0};
        data.resize(4 + size, 'x');
        Reader reader(data);
        EXPECT_THAT([&] { (void)CryptoUtil::getString(reader.cursor, reader.remaining); },
                    ThrowsMessage<Exception>(kTooShort));
        EXPECT_EQ(reader.position(), 4);
        EXPECT_EQ(reader.remaining, size);
    }
}

TEST(CodecTest, AStringMayEndWithTheData) {
    Reader reader({1, 0, 0, 0, 'x'});
    EXPECT_EQ(CryptoUtil::getString(reader.cursor, reader.remaining), "x");
    EXPECT_EQ(reader.remaining, 0U);
}

TEST(CodecTest, TheGreatestLengthIsNotTakenForNone) {
    Reader reader({0xFF, 0xFF, 0xFF, 0xFF, 'x'});
    EXPECT_THAT([&] { (void)CryptoUtil::getString(reader.cursor, reader.remaining); },
                ThrowsMessage<Exception>(kTooShort));
    EXPECT_EQ(reader.position(), 4);
}

}  // namespace
