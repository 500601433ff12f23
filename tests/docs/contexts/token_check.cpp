// SPDX-License-Identifier: Apache-2.0
// Issues a token of now and an old one, and lets the guide's lines judge them.
#include <openssl/rsa.h>

#include <cstdlib>
#include <ctime>
#include <map>
#include <stdexcept>
#include <string>

#include <tarnutil/CryptoUtil.h>

using tarnutil::CryptoUtil;

static void refuse() { throw std::runtime_error("too old"); }

static std::string checked(const std::string& token, RSA* publicKey) {
    /* snippet */
    return user + attributes["role"];
}

int main() {
    RSA* const key = RSA_new();
    BIGNUM* const exponent = BN_new();
    if (BN_set_word(exponent, RSA_F4) != 1) return 1;
    if (RSA_generate_key_ex(key, 2048, exponent, nullptr) != 1) return 1;
    const long now = std::time(nullptr);
    const std::map<std::string, std::string> attributes{{"role", "admin"}};
    if (checked(CryptoUtil::generateAuthToken("alice", attributes, now, key), key) != "aliceadmin")
        return 2;
    try {
        checked(CryptoUtil::generateAuthToken("alice", attributes, now - 1000, key), key);
        return 3;
    } catch (const std::runtime_error&) {
    }
    BN_free(exponent);
    RSA_free(key);
}
