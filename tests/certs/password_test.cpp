// SPDX-License-Identifier: Apache-2.0
// The callback that hands OpenSSL the password of a key.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <tarnutil/cert.h>

#include "material.h"

namespace tarnutil_test {
namespace {

// What PEM_read_bio_PrivateKey was last given.
struct Given {
    pem_password_cb* callback;
    void* password;
};
thread_local Given given = {};

using Reader = EVP_PKEY*(BIO*, EVP_PKEY**, pem_password_cb*, void*);

}  // namespace
}  // namespace tarnutil_test

// Stands in front of OpenSSL's.
extern "C" EVP_PKEY* PEM_read_bio_PrivateKey(BIO* bio, EVP_PKEY** key, pem_password_cb* callback,
                                             void* password) {
    using namespace tarnutil_test;
    given = {callback, password};
    static auto* const read =
        reinterpret_cast<Reader*>(dlsym(RTLD_NEXT, "PEM_read_bio_PrivateKey"));
    return read(bio, key, callback, password);
}

namespace tarnutil_test {
namespace {

struct PasswordCase {
    const char* says;
    const char* password;
    int size;  // of the buffer
    const char* written;
};
// clang-format off
const PasswordCase kPasswordCases[] = {
    // says                          password  size  written
    {"all of it, and no NUL",        "secret", 100,  "secret"},
    {"one byte more than it",        "secret", 7,    "secret"},
    {"exactly its length",           "secret", 6,    "secret"},
    {"one byte less",                "secret", 5,    "secre"},
    {"one byte",                     "secret", 1,    "s"},
    {"no byte",                      "secret", 0,    ""},
    {"an empty password",            "",       100,  ""},
    {"no password",                  nullptr,  100,  ""},
};
// clang-format on

TEST(PasswordTest, IsCopiedAsFarAsTheBufferTakesIt) {
    for (const PasswordCase& row : kPasswordCases) {
        void* const password = const_cast<char*>(row.password);
        (void)EvpPkeyPtr(TARNSSL_load_PrivateKey_file(material("ec.pem").c_str(), password));
        ASSERT_NE(given.callback, nullptr);
        EXPECT_EQ(given.password, password);
        for (const int writing : {0, 1}) {  // asked for to read a key, or to write one
            SCOPED_TRACE(row.says);
            const std::string written = row.written;
            std::string buffer(101, '#');
            EXPECT_EQ(given.callback(&buffer[0], row.size, writing, given.password),
                      static_cast<int>(written.size()));
            EXPECT_EQ(buffer, written + std::string(101 - written.size(), '#'));
        }
    }
    ERR_clear_error();
}

}  // namespace
}  // namespace tarnutil_test
