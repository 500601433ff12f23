// SPDX-License-Identifier: Apache-2.0
// Base64, digests and tokens, beside the calls of OpenSSL that do the work and POCO's forms of
// them.
#include <Poco/DigestEngine.h>
#include <Poco/MD5Engine.h>
#include <Poco/SHA1Engine.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <tarnutil/CryptoUtil.h>
#include <tarnutil/TmpFile.h>

#include "bench.h"
#include "numbers.h"

namespace {

using Bytes = std::vector<unsigned char>;
using tarnutil::CryptoUtil;
using tarnutil_bench::someBytes;

constexpr std::size_t kSizes[] = {64, 4096, 65536, 1 << 20};
constexpr std::size_t kFileSizes[] = {4096, 1 << 20, 16 << 20};

// Adds a row whose `work` is called with an input that `made` makes of `size` before the clock
// starts.
template <class Make, class Work>
void row(const std::string& operation, std::size_t size, const char* who, Make made, Work work) {
    tarnutil_bench::add(
        "CryptoUtil/" + operation + "/" + std::to_string(size) + "/" + who,
        [size, made, work](benchmark::State& state) {
            auto input = made(size);
            auto once = work;
            for (auto _ : state) benchmark::DoNotOptimize(once(input));
            state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
        });
}

// ---- base64: the peers write into a buffer that is there already

void addEncode(std::size_t size) {
    row("base64_encode", size, "tarnutil", someBytes,
        [](const Bytes& data) { return CryptoUtil::base64Encode(data); });
    row("base64_encode", size, "EVP_EncodeBlock", someBytes,
        [out = Bytes((size + 2) / 3 * 4 + 1)](const Bytes& data) mutable {
            return EVP_EncodeBlock(out.data(), data.data(), static_cast<int>(data.size()));
        });
}

void addDecode(std::size_t size) {
    const auto text = [](std::size_t bytes) { return CryptoUtil::base64Encode(someBytes(bytes)); };
    row("base64_decode", size, "tarnutil", text,
        [](const std::string& from) { return CryptoUtil::base64Decode(from); });
    row("base64_decode", size, "EVP_DecodeBlock", text,
        [out = Bytes(size + 3)](const std::string& from) mutable {
            return EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(from.data()),
                                   static_cast<int>(from.size()));
        });
}

// ---- digests

unsigned int evpDigest(const Bytes& data, const EVP_MD* kind) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(data.data(), data.size(), digest, &length, kind, nullptr) != 1) std::abort();
    return digest[0];
}

template <class Engine>
Poco::DigestEngine::Digest pocoDigest(const Bytes& data) {
    Engine engine;
    engine.update(data.data(), static_cast<unsigned>(data.size()));
    return engine.digest();
}

void addDigests(std::size_t size) {
    row("sha1", size, "tarnutil", someBytes,
        [](Bytes& data) { return CryptoUtil::computeSha1Digest(data); });
    row("sha1", size, "EVP_Digest", someBytes,
        [](const Bytes& data) { return evpDigest(data, EVP_sha1()); });
    row("sha1", size, "Poco::SHA1Engine", someBytes, pocoDigest<Poco::SHA1Engine>);
    row("md5", size, "tarnutil", someBytes,
        [](Bytes& data) { return CryptoUtil::computeMd5Digest(data); });
    row("md5", size, "EVP_Digest", someBytes,
        [](const Bytes& data) { return evpDigest(data, EVP_md5()); });
    row("md5", size, "Poco::MD5Engine", someBytes, pocoDigest<Poco::MD5Engine>);
}

// A file of `size` bytes that goes with the object.
std::unique_ptr<tarnutil::TmpFile> someFile(std::size_t size) {
    auto file = std::make_unique<tarnutil::TmpFile>();
    file->create(/*directory=*/false);
    const Bytes bytes = someBytes(size);
    std::ofstream(file->getPath(), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return file;
}

using File = std::unique_ptr<tarnutil::TmpFile>;

void addFileDigests(std::size_t size) {
    row("sha1_file", size, "tarnutil", someFile,
        [](const File& file) { return CryptoUtil::computeSha1Digest(file->getPath()); });
    row("sha1_file", size, "in_memory", someBytes,
        [](Bytes& data) { return CryptoUtil::computeSha1Digest(data); });
    row("md5_file", size, "tarnutil", someFile,
        [](const File& file) { return CryptoUtil::computeMd5Digest(file->getPath()); });
    row("md5_file", size, "in_memory", someBytes,
        [](Bytes& data) { return CryptoUtil::computeMd5Digest(data); });
}

// ---- tokens

struct FreeRsa {
    void operator()(RSA* key) const { RSA_free(key); }
};
struct FreeBignum {
    void operator()(BIGNUM* number) const { BN_free(number); }
};
using RsaPtr = std::unique_ptr<RSA, FreeRsa>;

RsaPtr makeKey(int bits) {
    RsaPtr key(RSA_new());
    const std::unique_ptr<BIGNUM, FreeBignum> exponent(BN_new());
    if (BN_set_word(exponent.get(), RSA_F4) != 1 ||
        RSA_generate_key_ex(key.get(), bits, exponent.get(), nullptr) != 1) {
        std::abort();
    }
    return key;
}

// One key a size for all rows, made when the first of them needs it.
RSA* keyOf(int bits) {
    static std::map<int, RsaPtr> keys;
    RsaPtr& key = keys[bits];
    if (!key) key = makeKey(bits);
    return key.get();
}

// What a token of just `blocks` blocks says.
struct Content {
    Content(RSA* key, std::size_t blocks)
        : attributes{{"role", "operator"}, {"site", "north"}, {"note", ""}} {
        const auto size = static_cast<std::size_t>(RSA_size(key));
        attributes["note"].assign((blocks - 1) * (size - RSA_PKCS1_PADDING_SIZE), 'n');
        const std::size_t made = CryptoUtil::base64Decode(token(key)).size() / size;
        if (made != blocks) std::abort();
    }

    std::string token(RSA* key) const {
        return CryptoUtil::generateAuthToken("ada", attributes, /*timestamp=*/1700000000, key);
    }

    std::map<std::string, std::string> attributes;
};

template <class Run>
void tokenRow(const std::string& operation, int bits, std::size_t blocks, const char* who,
              Run run) {
    tarnutil_bench::add("CryptoUtil/" + operation + "/" + std::to_string(bits) + "x" +
                            std::to_string(blocks) + "/" + who,
                        [bits, blocks, run](benchmark::State& state) {
                            RSA* const key = keyOf(bits);
                            run(state, key, Content(key, blocks), blocks);
                        });
}

void issue(benchmark::State& state, RSA* key, const Content& content, std::size_t) {
    for (auto _ : state) benchmark::DoNotOptimize(content.token(key));
}

void bareEncrypt(benchmark::State& state, RSA* key, const Content&, std::size_t blocks) {
    const Bytes piece = someBytes(static_cast<std::size_t>(RSA_size(key)) - RSA_PKCS1_PADDING_SIZE);
    Bytes block(static_cast<std::size_t>(RSA_size(key)));
    for (auto _ : state) {
        for (std::size_t i = 0; i < blocks; ++i) {
            benchmark::DoNotOptimize(RSA_private_encrypt(static_cast<int>(piece.size()),
                                                         piece.data(), block.data(), key,
                                                         RSA_PKCS1_PADDING));
        }
    }
}

void check(benchmark::State& state, RSA* key, const Content& content, std::size_t) {
    const std::string token = content.token(key);
    for (auto _ : state) {
        std::string user;
        std::map<std::string, std::string> attributes;
        long timestamp = 0;
        CryptoUtil::decryptAuthToken(token, user, attributes, timestamp, key);
        benchmark::DoNotOptimize(attributes);
    }
}

void bareDecrypt(benchmark::State& state, RSA* key, const Content& content, std::size_t blocks) {
    const Bytes ciphertext = CryptoUtil::base64Decode(content.token(key));
    const auto size = static_cast<std::size_t>(RSA_size(key));
    Bytes piece(size);
    for (auto _ : state) {
        for (std::size_t i = 0; i < blocks; ++i) {
            benchmark::DoNotOptimize(RSA_public_decrypt(static_cast<int>(size),
                                                        ciphertext.data() + i * size, piece.data(),
                                                        key, RSA_PKCS1_PADDING));
        }
    }
}

void addAll() {
    for (const std::size_t size : kSizes) {
        addEncode(size);
        addDecode(size);
        addDigests(size);
    }
    for (const std::size_t size : kFileSizes) addFileDigests(size);
    for (const int bits : {2048, 4096}) {
        for (const std::size_t blocks : {std::size_t{1}, std::size_t{4}}) {
            tokenRow("token_issue", bits, blocks, "tarnutil", issue);
            tokenRow("token_issue", bits, blocks, "RSA_private_encrypt", bareEncrypt);
            tokenRow("token_check", bits, blocks, "tarnutil", check);
            tokenRow("token_check", bits, blocks, "RSA_public_decrypt", bareDecrypt);
        }
    }
}

const tarnutil_bench::Added added(addAll);

}  // namespace
