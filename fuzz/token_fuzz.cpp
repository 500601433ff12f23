// SPDX-License-Identifier: Apache-2.0
// Tokens. The first byte of an input tells what the rest is: the text of a token, or a plaintext,
// which is then made into a token with a good final digest so that the reader behind it is reached.
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <tarnutil/CryptoUtil.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <tarnutil/Exception.h>

#include "require.h"

namespace {

using tarnutil::CryptoUtil;
using Bytes = std::vector<unsigned char>;

RSA* readKey() {
    BIO* const bio = BIO_new_file(TARNUTIL_FUZZ_KEY, "r");
    RSA* const key = PEM_read_bio_RSAPrivateKey(bio, nullptr, nullptr, nullptr);
    BIO_vfree(bio);
    require(key != nullptr);
    return key;
}

std::string sealed(Bytes plaintext, RSA* key) {
    CryptoUtil::insertHash(plaintext);
    const std::size_t size = static_cast<std::size_t>(RSA_size(key));
    Bytes block(size), ciphertext;
    for (std::size_t at = 0; at < plaintext.size(); at += size - 11) {
        const std::size_t length = std::min(size - 11, plaintext.size() - at);
        require(RSA_private_encrypt(static_cast<int>(length), plaintext.data() + at, block.data(),
                                    key, RSA_PKCS1_PADDING) == RSA_size(key));
        ciphertext.insert(ciphertext.end(), block.begin(), block.end());
    }
    return CryptoUtil::base64Encode(ciphertext);
}

// Opens a token. What is opened has to survive being issued and opened again, attributes with an
// equals sign in their name aside, which no reader yields.
void open(const std::string& token, RSA* key) {
    std::string user, userAgain;
    std::map<std::string, std::string> attributes, attributesAgain;
    long time = -1, timeAgain = -1;
    try {
        CryptoUtil::decryptAuthToken(token, user, attributes, time, key);
    } catch (const tarnutil::Exception&) {
        return;
    }
    CryptoUtil::decryptAuthToken(CryptoUtil::generateAuthToken(user, attributes, time, key),
                                 userAgain, attributesAgain, timeAgain, key);
    require(user == userAgain && attributes == attributesAgain && time == timeAgain);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static RSA* const key = readKey();
    if (size == 0) return 0;
    if (data[0] % 2 == 0) {
        open(std::string(data + 1, data + size), key);
    } else {
        open(sealed(Bytes(data + 1, data + size), key), key);
    }
    return 0;
}
