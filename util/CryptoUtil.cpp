// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/CryptoUtil.h>

#include <openssl/buffer.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/md5.h>
#include <openssl/rsa.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string_view>

#include <tarnutil/Exception.h>
#include <tarnutil/File.h>

#include "boundary.h"
#include "key_value.h"
#include "openssl.h"

namespace tarnutil {
namespace {

using Bytes = std::vector<unsigned char>;
using Attributes = std::map<std::string, std::string>;

constexpr std::size_t kDecodeStep = 512;
constexpr std::size_t kFileStep = 4096;
constexpr std::size_t kReadAhead = 16384;  // a stream's own 4096 would cost SHA-1 a tenth more
constexpr std::size_t kIntegerSize = 4;
constexpr std::size_t kDigestSize = SHA_DIGEST_LENGTH;
constexpr std::size_t kShortestPlaintext = 2 * kIntegerSize + kDigestSize;
constexpr int kPaddingSize = RSA_PKCS1_PADDING_SIZE;  // what each block of a token spends on it

constexpr char kTooShort[] = "Not enough data in authentication token.";

// ---- base64 ----

BioPtr allocated(BIO* bio, const char* messageIfNull) {
    BioPtr owner(bio);
    if (!owner) throw Exception(messageIfNull);
    return owner;
}

// A filter that takes and gives base64 without line breaks.
BioPtr base64Filter() {
    BioPtr filter = allocated(BIO_new(BIO_f_base64()), "Could not allocate base64 BIO.");
    BIO_set_flags(filter.get(), BIO_FLAGS_BASE64_NO_NL);
    return filter;
}

BioPtr memorySink() {
    return allocated(BIO_new(BIO_s_mem()), "Could not allocate output memory BIO.");
}

// Ends the writing to a sink: returns what it holds, which is not wiped when the sink goes. That
// would take a twentieth of the time and protect nothing: the caller has the same bytes, or the
// text that they were decoded from; and a token's plaintext, which replaces them, is open to
// everyone who has the public key.
BUF_MEM* contentLeftUnwiped(BIO* sink) {
    BUF_MEM* content = nullptr;
    if (BIO_get_mem_ptr(sink, &content) != 1) {
        throw Exception("Could not get memory buffer from BIO.");
    }
    // OpenSSL wipes `max` bytes when it frees the buffer.
    content->max = 0;
    return content;
}

// Gives an empty sink its final size at once; growing it step by step would cost as much as the
// conversion. No failure counts here: the sink grows when it is written to, or fails then.
void reserve(BIO* sink, std::size_t size) {
    if (size > INT_MAX) return;  // OpenSSL 1.0 counts in int
    BUF_MEM* content = nullptr;
    if (BIO_get_mem_ptr(sink, &content) != 1) return;
    content->data = static_cast<char*>(OPENSSL_malloc(size));
    content->max = content->data != nullptr ? size : 0;
}

// Writes all `size` bytes. False if the BIO takes another number of them.
bool writeAll(BIO* bio, const void* data, std::size_t size) {
    const int written = BIO_write(bio, data, static_cast<int>(size));
    return written >= 0 && static_cast<std::size_t>(written) == size;
}

// Moves what `source` yields to `sink`. Only a result of -1 is an error of the source: any other
// that is not positive is its end.
void drain(BIO* source, BIO* sink) {
    char buffer[kDecodeStep];
    int count = 0;
    while ((count = BIO_read(source, buffer, sizeof buffer)) > 0) {
        if (!writeAll(sink, buffer, static_cast<std::size_t>(count))) {
            throw Exception("Could not read from BIO.");
        }
    }
    if (count == -1) throw Exception("Could not read from BIO.");
}

// The bytes that base64 text stands for, which may be changed. They stay in the sink, since copying
// them out shows beside the decryption of a token.
class Decoded {
public:
    explicit Decoded(const std::string& text)
        : filter(base64Filter()),
          source(allocated(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())),
                           "Could not allocate input memory buffer BIO.")) {
        BIO* const chain = BIO_push(filter.get(), source.get());
        sink = memorySink();
        const std::size_t expected = text.size() / 4 * 3;
        if (expected > kDecodeStep) reserve(sink.get(), expected);  // one write makes its own room
        drain(chain, sink.get());
        content = contentLeftUnwiped(sink.get());
    }

    std::size_t size() const { return content->length; }
    unsigned char* data() { return reinterpret_cast<unsigned char*>(content->data); }

private:
    const BioPtr filter;
    const BioPtr source;
    BioPtr sink;
    BUF_MEM* content;
};

// ---- digests ----

struct Sha1 {
    using Context = SHA_CTX;
    static constexpr std::size_t size = SHA_DIGEST_LENGTH;
    static constexpr auto digest = SHA1;
    static constexpr auto init = SHA1_Init;
    static constexpr auto update = SHA1_Update;
    static constexpr auto final = SHA1_Final;
};

struct Md5 {
    using Context = MD5_CTX;
    static constexpr std::size_t size = MD5_DIGEST_LENGTH;
    static constexpr auto digest = MD5;
    static constexpr auto init = MD5_Init;
    static constexpr auto update = MD5_Update;
    static constexpr auto final = MD5_Final;
};

// A digest in steps. Their results are not looked at, because none of them ever fails: OpenSSL 3
// may refuse a whole digest, where it lacks memory or is set to offer other algorithms only, but
// not these.
template <class Algorithm>
class Digester {
public:
    Digester() { (void)Algorithm::init(&context); }

    void add(const void* data, std::size_t size) { (void)Algorithm::update(&context, data, size); }

    // Writes the digest of all that was added: Algorithm::size bytes.
    void finish(unsigned char* digest) { (void)Algorithm::final(digest, &context); }

private:
    typename Algorithm::Context context;
};

// Asks for the whole digest at once, and makes it in steps where that is refused.
template <class Algorithm>
Bytes digestOf(const Bytes& data) {
    unsigned char digest[Algorithm::size];
    if (Algorithm::digest(data.data(), data.size(), digest) == nullptr) {
        Digester<Algorithm> digester;
        digester.add(data.data(), data.size());
        digester.finish(digest);
    }
    return Bytes(digest, digest + sizeof digest);
}

std::FILE* openToRead(const std::string& path) {
    std::FILE* const file = std::fopen(path.c_str(), "r");
    if (file == nullptr) {
        const int error = errno;
        throw Exception("Could not open file \"" + path +
                        "\" for reading: " + Exception::getStrerror(error));
    }
    return file;
}

template <class Algorithm>
Bytes digestOfFile(const std::string& path) {
    Digester<Algorithm> digester;
    const std::unique_ptr<char[]> readAhead(new char[kReadAhead]);
    std::FILE* const file = openToRead(path);
    FileCloser closer(file);
    (void)std::setvbuf(file, readAhead.get(), _IOFBF, kReadAhead);
    unsigned char buffer[kFileStep];
    while (const std::size_t count = std::fread(buffer, 1, sizeof buffer, file)) {
        digester.add(buffer, count);
    }
    closer.close();
    Bytes digest(Algorithm::size);
    digester.finish(digest.data());
    return digest;
}

// ---- tokens ----

Bytes plaintextOf(const std::string& user, const Attributes& attributes, long timestamp) {
    Bytes plaintext;
    CryptoUtil::insertUInt32T(plaintext, static_cast<unsigned int>(timestamp));
    CryptoUtil::insertString(plaintext, user);
    CryptoUtil::insertHash(plaintext);
    CryptoUtil::insertUInt32T(plaintext, static_cast<unsigned int>(attributes.size()));
    for (const auto& [name, value] : attributes) {
        CryptoUtil::insertString(plaintext, name + "=" + value);
    }
    CryptoUtil::insertHash(plaintext);
    return plaintext;
}

// How many bytes of a token one block of `key` holds; throws `messageIfNone` for a key that is too
// small to hold any.
std::size_t pieceSize(RSA* key, const char* messageIfNone) {
    const int size = RSA_size(key) - kPaddingSize;
    if (size <= 0) throw Exception(messageIfNone);
    return static_cast<std::size_t>(size);
}

// Encrypts piece by piece, each into one block of the key's size.
Bytes encrypt(const Bytes& plaintext, RSA* key) {
    constexpr char kFailed[] = "Could not RSA encrypt authentication token.";
    const std::size_t piece = pieceSize(key, kFailed);
    Bytes block(piece + kPaddingSize);
    Bytes ciphertext;
    ciphertext.reserve((plaintext.size() / piece + 1) * block.size());
    for (std::size_t offset = 0; offset < plaintext.size(); offset += piece) {
        const std::size_t length = std::min(plaintext.size() - offset, piece);
        const int written = RSA_private_encrypt(static_cast<int>(length), plaintext.data() + offset,
                                                block.data(), key, RSA_PKCS1_PADDING);
        if (written != static_cast<int>(block.size())) throw Exception(kFailed);
        ciphertext.insert(ciphertext.end(), block.begin(), block.end());
    }
    return ciphertext;
}

// Decrypts block by block, and leaves the plaintext where the ciphertext was: it is shorter, and
// memory of its own would show beside the decryption. Returns its size. A rest that is no whole
// block is refused, not read beyond its end. Each block comes out beside the text, since an
// RSA_METHOD may write before it has read.
std::size_t decryptInPlace(unsigned char* text, std::size_t size, RSA* key) {
    constexpr char kFailed[] = "Could not RSA decrypt authentication token.";
    unsigned char
        block[OPENSSL_RSA_MAX_MODULUS_BITS / 8];  // of a larger key, OpenSSL decrypts none
    if (size == 0) throw Exception(kTooShort);
    const std::size_t blockSize = pieceSize(key, kFailed) + kPaddingSize;
    if (blockSize > sizeof block || size % blockSize != 0) throw Exception(kFailed);
    std::size_t decrypted = 0;
    for (std::size_t offset = 0; offset < size; offset += blockSize) {
        const int length = RSA_public_decrypt(static_cast<int>(blockSize), text + offset, block,
                                              key, RSA_PKCS1_PADDING);
        if (length < 0) throw Exception(kFailed);
        std::memcpy(text + decrypted, block, static_cast<std::size_t>(length));
        decrypted += static_cast<std::size_t>(length);
    }
    return decrypted;
}

// Compares the digest behind the first `covered` bytes with theirs. In steps: OpenSSL 3 looks the
// algorithm up anew for each one-shot digest, which shows beside the decryption of a block.
void checkFinalDigest(const unsigned char* plaintext, std::size_t covered) {
    unsigned char digest[kDigestSize];
    Digester<Sha1> digester;
    digester.add(plaintext, covered);
    digester.finish(digest);
    if (std::memcmp(digest, plaintext + covered, sizeof digest) != 0) {
        throw Exception("Authentication token message digest did not validate.");
    }
}

// As getUInt32T.
unsigned int nextInteger(unsigned char*& cursor, unsigned long& remaining) {
    if (remaining < kIntegerSize) throw Exception(kTooShort);
    unsigned int value = 0;
    for (std::size_t i = 0; i < kIntegerSize; ++i) {
        value |= static_cast<unsigned int>(cursor[i]) << (8 * i);
    }
    cursor += kIntegerSize;
    remaining -= kIntegerSize;
    return value;
}

// As getString, but the text stays where it was read.
std::string_view nextField(unsigned char*& cursor, unsigned long& remaining) {
    const unsigned int length = nextInteger(cursor, remaining);
    if (remaining < length) throw Exception(kTooShort);
    const std::string_view field(reinterpret_cast<const char*>(cursor), length);
    cursor += length;
    remaining -= length;
    return field;
}

// Reads the number of attributes and then each of them as NAME=VALUE.
Attributes readAttributes(unsigned char* cursor, unsigned long remaining) {
    Attributes attributes;
    const unsigned int count = nextInteger(cursor, remaining);
    for (unsigned int i = 0; i < count; ++i) {
        store(attributes, nextField(cursor, remaining));
    }
    return attributes;
}

}  // namespace

std::string CryptoUtil::base64Encode(const std::vector<unsigned char>& data) {
    return admitOnly<Exception>([&] {
        const BioPtr filter = base64Filter();
        const BioPtr sink = memorySink();
        reserve(sink.get(), (data.size() + 2) / 3 * 4);
        BIO* const chain = BIO_push(filter.get(), sink.get());
        if (!writeAll(chain, data.data(), data.size())) throw Exception("Could not write to BIO.");
        if (BIO_flush(chain) != 1) throw Exception("Could not flush BIO.");
        const BUF_MEM* const text = contentLeftUnwiped(sink.get());
        return std::string(text->data, text->length);
    });
}

// The text comes by value because callers link against that signature.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
std::vector<unsigned char> CryptoUtil::base64Decode(std::string text) {
    return admitOnly<Exception>([&] {
        Decoded decoded(text);
        return Bytes(decoded.data(), decoded.data() + decoded.size());
    });
}

std::vector<unsigned char> CryptoUtil::computeSha1Digest(std::vector<unsigned char>& data) {
    return admitOnly<Exception>([&] { return digestOf<Sha1>(data); });
}

std::vector<unsigned char> CryptoUtil::computeMd5Digest(std::vector<unsigned char>& data) {
    return admitOnly<Exception>([&] { return digestOf<Md5>(data); });
}

std::vector<unsigned char> CryptoUtil::computeSha1Digest(const std::string& path) {
    return admitOnly<Exception>([&] { return digestOfFile<Sha1>(path); });
}

std::vector<unsigned char> CryptoUtil::computeMd5Digest(const std::string& path) {
    return admitOnly<Exception>([&] { return digestOfFile<Md5>(path); });
}

unsigned int CryptoUtil::swapEndian(unsigned int value) { return __builtin_bswap32(value); }

unsigned int CryptoUtil::getUInt32T(unsigned char*& cursor, unsigned long& remaining) {
    return admitOnly<Exception>([&] { return nextInteger(cursor, remaining); });
}

std::string CryptoUtil::getString(unsigned char*& cursor, unsigned long& remaining) {
    return admitOnly<Exception>([&] { return std::string(nextField(cursor, remaining)); });
}

void CryptoUtil::insertUInt32T(std::vector<unsigned char>& out, unsigned int value) {
    admitOnly<Exception>([&] {
        for (std::size_t i = 0; i < kIntegerSize; ++i) {
            out.push_back(static_cast<unsigned char>(value >> (8 * i)));
        }
    });
}

void CryptoUtil::insertString(std::vector<unsigned char>& out, const std::string& s) {
    admitOnly<Exception>([&] {
        insertUInt32T(out, static_cast<unsigned int>(s.size()));
        out.insert(out.end(), s.begin(), s.end());
    });
}

void CryptoUtil::insertHash(std::vector<unsigned char>& out) {
    admitOnly<Exception>([&] {
        const Bytes digest = computeSha1Digest(out);
        out.insert(out.end(), digest.begin(), digest.end());
    });
}

std::string CryptoUtil::generateAuthToken(const std::string& user,
                                          const std::map<std::string, std::string>& attributes,
                                          long timestamp, rsa_st* key) {
    return admitOnly<Exception>(
        [&] { return base64Encode(encrypt(plaintextOf(user, attributes, timestamp), key)); });
}

std::string CryptoUtil::generateAuthToken(const std::string& user,
                                          const std::map<std::string, std::string>& attributes,
                                          rsa_st* key) {
    return generateAuthToken(user, attributes, time(nullptr), key);
}

void CryptoUtil::decryptAuthToken(const std::string& token, std::string& user,
                                  std::map<std::string, std::string>& attributes, long& timestamp,
                                  rsa_st* key) {
    admitOnly<Exception>([&] {
        Decoded decoded(token);
        unsigned char* cursor = decoded.data();
        const std::size_t size = decryptInPlace(cursor, decoded.size(), key);
        if (size < kShortestPlaintext) throw Exception(kTooShort);
        unsigned long remaining = size - kDigestSize;
        checkFinalDigest(cursor, remaining);
        timestamp = nextInteger(cursor, remaining);
        user = nextField(cursor, remaining);
        if (remaining == 0) return;  // a short token, which says nothing about attributes
        // Quirk: the first digest is stepped over unread and not taken off the remaining bytes, so
        // the final digest lies within reach of what follows.
        // Pinned by TokenTest.AttributesMayReachIntoTheFinalDigest.
        cursor += kDigestSize;
        attributes = readAttributes(cursor, remaining);
    });
}

}  // namespace tarnutil
